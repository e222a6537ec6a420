#include "soak_stream.h"

#include "random.h"

#include <stdexcept>

namespace soak
{
namespace
{

using std::chrono::milliseconds;

const char* nameOf(zrn::QueuePolicy policy)
{
    switch (policy) {
    case zrn::QueuePolicy::Newest:
        return "newest";
    case zrn::QueuePolicy::All:
        return "all";
    case zrn::QueuePolicy::Block:
        break;
    }
    return "block";
}

bool hasTrailer(const SentFrame& frame, std::uint64_t trailer)
{
    const int unknownBits = 32 - zrn::knownFrameNumberBits(trailer);
    return (frame.number ^ static_cast<std::uint32_t>(trailer)) << unknownBits == 0;
}

} // namespace

SoakStream::SoakStream(const std::shared_ptr<zrn::Driver>& driver, OperationLog& log,
                       const std::string& serial, zrn::QueuePolicy policy)
    : m_log(log)
    , m_policy(std::string("library, ") + nameOf(policy) + ": ")
{
    const auto camera =
        m_log.time("Camera::open", [&] { return zrn::Camera::open(driver, {.serial = serial}); });
    camera->setProperty("MaxGrabWaitTime", std::int32_t{200});
    zrn::StreamOptions options;
    options.policy = policy;
    options.capacity = 4;
    options.keepAlive = true;
    m_stream = m_log.time("Stream", [&] { return std::make_unique<zrn::Stream>(camera, options); });
}

void SoakStream::takeThread(Pauses& pauses, unsigned seed)
{
    Random random(seed);
    milliseconds pause(0);
    while (pauses.pause(pause)) {
        if (const std::optional<zrn::Frame> frame = m_stream->next(milliseconds(50))) {
            note(*frame);
        }
        pause = milliseconds(pick(random, 0, 59) == 0 ? pick(random, 50, 700) : 0);
    }
}

void SoakStream::waitForFrame()
{
    // What was grabbed before the faults ended does not count.
    const std::uint64_t before = m_stream->counters().frames;
    const Seconds end = now() + 30;
    while (m_stream->counters().frames < before + 10) {
        if (now() > end) {
            throw std::runtime_error("a stream is not back half a minute after all faults");
        }
        if (const std::optional<zrn::Frame> frame = m_stream->next(milliseconds(50))) {
            note(*frame);
        }
    }
}

void SoakStream::close()
{
    m_log.time("Stream::stop", [this] { m_stream->stop(); });
    while (const std::optional<zrn::Frame> frame = m_stream->next(milliseconds(0))) {
        note(*frame);
    }
    m_counters = m_stream->counters();
    m_log.time("~Stream", [this] { m_stream.reset(); });
}

void SoakStream::note(const zrn::Frame& frame)
{
    m_taken.push_back(frame.images().front().trailer());
}

Outcomes SoakStream::settle(const std::vector<SentFrame>& sent) const
{
    Outcomes outcomes;
    std::uint64_t taken = 0;
    auto frame = sent.begin();
    for (const std::uint64_t trailer : m_taken) {
        while (frame != sent.end() && !hasTrailer(*frame, trailer)) {
            ++frame;
        }
        if (frame == sent.end()) {
            break;
        }
        ++frame;
        ++taken;
    }
    const std::uint64_t dropped = m_counters.lost.queue;
    outcomes[m_policy + "taken"] = taken;
    outcomes[m_policy + "dropped from the queue"] = dropped;
    if (taken < m_taken.size()) {
        outcomes["unexplained: taken, but not sent"] = m_taken.size() - taken;
    }
    if (m_counters.frames != m_taken.size() + dropped) {
        outcomes["unexplained: grabbed, but neither taken nor dropped"] = 1;
    }
    if (taken + dropped <= sent.size()) {
        outcomes[m_policy + "lost before the library"] = sent.size() - taken - dropped;
    }
    return outcomes;
}

} // namespace soak
