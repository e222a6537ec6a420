#include "zrnview/device/grab_loop.h"

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

/// Pause after a grab that failed at once, so that a broken stream does not keep a core busy.
constexpr auto pauseAfterFailure = 20ms;

double secondsSinceStart(Clock::time_point time)
{
    static const Clock::time_point start = Clock::now();
    return std::chrono::duration<double>(time - start).count();
}

/// The images of one grab; empty unless all are well formed and of one size.
zrnrecording::Frame frameOf(zrnhost::ImageBlocks& blocks, int sensorCount)
{
    zrnrecording::Frame frame;
    const bool usable = !blocks.empty() && blocks.size() <= zrnrecording::maximumImages &&
                        std::all_of(blocks.begin(), blocks.end(), [&blocks](const auto& block) {
                            return zrnhost::isWellFormed(*block) &&
                                   block->width == blocks.front()->width &&
                                   block->height == blocks.front()->height;
                        });
    if (!usable) {
        return frame;
    }
    frame.width = blocks.front()->width;
    frame.height = blocks.front()->height;
    const int count = static_cast<int>(blocks.size());
    for (int i = 0; i < count; ++i) {
        frame.images.push_back({zrnhost::imageLetter(i, count, sensorCount),
                                std::move(blocks[static_cast<std::size_t>(i)]->data)});
    }
    return frame;
}

} // namespace

void GrabLoop::start(zrnhost::Camera& camera, int sensorCount)
{
    stop();
    m_stopping = false;
    m_numbers = zrnhost::FrameNumbers();
    {
        const std::lock_guard lock(m_mutex);
        m_counters = GrabCounters();
        m_counters.lastFrame = Clock::now();
    }
    m_thread = std::thread([this, &camera, sensorCount] { run(camera, sensorCount); });
}

void GrabLoop::stop()
{
    m_stopping = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void GrabLoop::setRecorder(std::shared_ptr<zrnrecording::Recorder> recorder)
{
    const std::lock_guard lock(m_mutex);
    m_recorder = std::move(recorder);
}

GrabCounters GrabLoop::counters() const
{
    const std::lock_guard lock(m_mutex);
    return m_counters;
}

void GrabLoop::run(zrnhost::Camera& camera, int sensorCount)
{
    zrnhost::ImageBlocks blocks;
    while (!m_stopping) {
        const Clock::time_point asked = Clock::now();
        const ErrorCode code = zrnhost::grab(*camera, blocks);
        if (m_stopping) {
            return;
        }
        if (code == ErrorCode::Success) {
            accept(blocks, sensorCount, asked);
        } else {
            noteFailure(code);
            if (Clock::now() - asked < pauseAfterFailure) {
                std::this_thread::sleep_for(pauseAfterFailure);
            }
        }
    }
}

void GrabLoop::accept(zrnhost::ImageBlocks& blocks, int sensorCount, Clock::time_point asked)
{
    const Clock::time_point now = Clock::now();
    const quint64 trailer = !blocks.empty() && zrnhost::isWellFormed(*blocks.front())
                                ? zrnhost::trailerOf(*blocks.front())
                                : 0;
    auto frame = std::make_shared<zrnrecording::Frame>(frameOf(blocks, sensorCount));
    if (frame->images.empty()) {
        noteFailure(ErrorCode::SplitFailed);
        return;
    }
    const zrnhost::FrameStep step = m_numbers.follow(trailer);
    frame->number = step.number;
    frame->missing = step.missing;

    std::shared_ptr<zrnrecording::Recorder> recorder;
    {
        const std::lock_guard lock(m_mutex);
        ++m_counters.frames;
        m_counters.missing += step.missing;
        m_counters.repeated += step.repeated ? 1 : 0;
        m_counters.lastFrame = now;
        recorder = m_recorder;
    }
    frame->arrivalNanoseconds = std::chrono::nanoseconds(now.time_since_epoch()).count();

    LiveFrame live;
    live.frame = frame;
    live.seconds = secondsSinceStart(now);
    live.handedOver = now;
    live.waitMilliseconds = std::chrono::duration<double, std::milli>(now - asked).count();
    m_station.deliver(std::move(live));
    if (recorder) {
        recorder->add(std::move(frame));
    }
}

void GrabLoop::noteFailure(ErrorCode code)
{
    const std::lock_guard lock(m_mutex);
    m_counters.timeouts += code == ErrorCode::GrabTimeout ? 1 : 0;
    m_counters.unusable += code == ErrorCode::GrabTimeout ? 0 : 1;
    m_counters.lastFailure = code;
}

} // namespace zrnview
