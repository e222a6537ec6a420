#include "soak_stream.h"

#include "random.h"
#include "stream_account.h"

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
    return soak::settle({m_policy, m_taken, m_counters.frames, m_counters.lost.queue}, sent);
}

} // namespace soak
