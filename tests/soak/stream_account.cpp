#include "stream_account.h"

#include "client/frame_numbers.h"

namespace soak
{
namespace
{

bool hasTrailer(const SentFrame& frame, std::uint64_t trailer)
{
    const int unknownBits = 32 - zrn::knownFrameNumberBits(trailer);
    return (frame.number ^ static_cast<std::uint32_t>(trailer)) << unknownBits == 0;
}

} // namespace

Outcomes settle(const StreamAccount& account, const std::vector<SentFrame>& sent)
{
    Outcomes outcomes;
    std::uint64_t taken = 0;
    auto frame = sent.begin();
    for (const std::uint64_t trailer : account.taken) {
        while (frame != sent.end() && !hasTrailer(*frame, trailer)) {
            ++frame;
        }
        if (frame == sent.end()) {
            break;
        }
        ++frame;
        ++taken;
    }
    outcomes[account.stream + "taken"] = taken;
    outcomes[account.stream + "dropped from the queue"] = account.dropped;
    if (taken < account.taken.size()) {
        outcomes["unexplained: taken, but not sent"] = account.taken.size() - taken;
    }
    if (account.grabbed != account.taken.size() + account.dropped) {
        outcomes["unexplained: grabbed, but neither taken nor dropped"] = 1;
    }
    if (taken + account.dropped > sent.size()) {
        outcomes["unexplained: taken or dropped beyond what was sent"] =
            taken + account.dropped - sent.size();
    } else {
        outcomes[account.stream + "lost before the library"] =
            sent.size() - taken - account.dropped;
    }
    return outcomes;
}

} // namespace soak
