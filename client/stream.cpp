#include "client/stream.h"

#include "checks/images.h"
#include "client/camera_object.h"
#include "client/stream_pace.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>

namespace zrn
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Pause after a grab that failed at once, so that a broken stream does not keep a core busy.
constexpr auto pauseAfterFailure = 20ms;
/// Between two looks for a camera.
constexpr auto searchPause = 200ms;
/// A camera that answers and still sends nothing may have lost its mind: it is opened anew then.
constexpr int enoughRestarts = 2;
constexpr std::size_t mostEvents = 256;

bool isSplitFailure(ErrorCode code)
{
    return code == ErrorCode::SplitFailed || code == ErrorCode::SplitException;
}

/// The memory of a frame. What gives it back is in the driver.
struct FrameMemory {
    std::shared_ptr<Driver> driver;
    ContractSpace::Images blocks;
};

/// The images of one grab; without any unless all are well formed and of one size.
Frame frameOf(const std::shared_ptr<Driver>& driver, ContractSpace::Images& blocks, int sensorCount)
{
    Frame frame;
    const bool isUsable = !blocks.empty() && blocks.size() <= Frame::mostImages &&
                          std::ranges::all_of(blocks, [&blocks](const auto& block) {
                              return ContractSpace::isWellFormed(*block) &&
                                     block->width == blocks.front()->width &&
                                     block->height == blocks.front()->height;
                          });
    if (!isUsable) {
        return frame;
    }
    frame.width = static_cast<std::uint32_t>(blocks.front()->width);
    frame.height = static_cast<std::uint32_t>(blocks.front()->height);
    frame.imageCount = blocks.size();
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const QByteArray& data = blocks[i]->data;
        frame.stored[i] = {
            imageLetter(static_cast<int>(i), static_cast<int>(blocks.size()), sensorCount),
            {reinterpret_cast<const std::uint8_t*>(data.constData()),
             static_cast<std::size_t>(data.size())}};
    }
    frame.memory = std::make_shared<const FrameMemory>(FrameMemory{driver, std::move(blocks)});
    return frame;
}

/// One grab, with its times where the driver tells them. @param times keeps FrameTimeSource::None
/// where it does not
ErrorCode grabTimed(CameraObject& object, ContractSpace::Images& blocks,
                    CameraSpace::FrameTimes& times)
{
    CameraSpace::FrameTimesInterface* const timed = object.frameTimes();
    return timed ? ContractSpace::grab(*timed, blocks, times)
                 : ContractSpace::grab(*object, blocks);
}

FrameTimes timesOf(const CameraSpace::FrameTimes& told, Clock::time_point arrival)
{
    using Source = CameraSpace::FrameTimeSource;
    FrameTimes times;
    if (told.payloadSource == Source::None) {
        times.firstPayload = times.lastPayload = times.handOver = arrival;
        return times;
    }
    const auto time = [](qint64 value) {
        return Clock::time_point(std::chrono::nanoseconds(value));
    };
    times.source = told.payloadSource == Source::Payload ? FrameTimes::Source::Payload
                                                         : FrameTimes::Source::HandOver;
    times.firstPayload = time(told.firstPayload);
    times.lastPayload = time(told.lastPayload);
    times.handOver = time(told.handOver);
    if (told.hasPresentationTime) {
        times.captured = told.presentationTime;
    }
    if (told.hasSourceClock) {
        times.sent = told.sourceClock;
    }
    times.cameraHz = told.clockFrequency;
    return times;
}

/// The next frame in the queue tells of one that is dropped.
void noteDrop(const Frame& dropped, Frame& next)
{
    next.dropped += dropped.dropped + 1;
    next.step.missing += dropped.step.missing;
    next.step.restarted = next.step.restarted || dropped.step.restarted;
}

} // namespace

/// What the stream and its thread share; the last of them to go deletes it.
class Stream::Core
{
public:
    Core(std::shared_ptr<Camera> camera, StreamOptions options)
        : m_camera(std::move(camera))
        , m_options(std::move(options))
    {
        if (m_camera->m_hasStream.exchange(true)) {
            throw Error("starting a second stream of a camera", ErrorCode::StreamStartFailed);
        }
        try {
            start();
        } catch (...) {
            m_camera->m_hasStream = false;
            throw;
        }
    }
    ~Core() { m_camera->m_hasStream = false; }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void launch(const std::shared_ptr<Core>& self)
    {
        const std::lock_guard lock(m_joinMutex);
        try {
            m_thread = std::thread([self] {
                ownThread = self.get();
                self->run();
            });
        } catch (const std::system_error&) {
            object()->stopStream(0);
            throw Error("starting the stream's thread", ErrorCode::StreamStartFailed);
        }
    }

    void stop()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isStopping = true;
        }
        tellReady();
        {
            const std::lock_guard lock(m_runMutex);
            object()->stopStream(0);
        }
        if (ownThread == this) {
            return; // the thread ends when the callback returns
        }
        const std::lock_guard lock(m_joinMutex);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    /// Stops, and from a callback leaves the thread to itself.
    void close()
    {
        stop();
        const std::lock_guard lock(m_joinMutex);
        if (m_thread.joinable()) {
            m_thread.detach();
        }
    }

    std::optional<Frame> next(std::chrono::milliseconds longest)
    {
        constexpr std::chrono::milliseconds year = std::chrono::years(1); // the clock can add it
        std::unique_lock lock(m_mutex);
        if (longest.count() > 0) { // a wait for no time asks the kernel all the same
            m_changed.wait_for(lock, std::min(longest, year),
                               [this] { return !m_queue.empty() || m_isStopping; });
        }
        if (m_queue.empty()) {
            return std::nullopt;
        }
        std::optional<Frame> frame(std::move(m_queue.front()));
        m_queue.pop_front();
        m_changed.notify_all();
        return frame;
    }

    std::optional<StreamEvent> nextEvent()
    {
        const std::lock_guard lock(m_mutex);
        if (m_events.empty()) {
            return std::nullopt;
        }
        std::optional<StreamEvent> event(std::move(m_events.front()));
        m_events.pop_front();
        return event;
    }

    bool isReady() const
    {
        const std::lock_guard lock(m_mutex);
        return !m_events.empty() || !m_queue.empty() || m_isStopping;
    }
    bool isStopping() const
    {
        const std::lock_guard lock(m_mutex);
        return m_isStopping;
    }
    StreamCounters counters() const
    {
        const std::lock_guard lock(m_mutex);
        StreamCounters counters = m_counters;
        const auto quiet = Clock::now() - counters.lastFrame;
        counters.silence = isSilence(quiet) && !m_isStopping ? quiet : Clock::duration::zero();
        counters.period = m_period.load();
        return counters;
    }
    std::vector<Outage> outages() const
    {
        const std::lock_guard lock(m_mutex);
        return m_outages;
    }
    const std::shared_ptr<Camera>& camera() const { return m_camera; }
    WallTime wallTime(FrameTimes::time_point time, WallClock::Kind kind)
    {
        const std::lock_guard lock(m_mutex);
        WallClock& clock = kind == WallClock::Kind::Tai ? m_tai : m_realtime;
        if (time > m_lastReading) {
            clock.note(WallClock::read(kind)); // it may have been set since the last one
        }
        return clock.map(time).value_or(WallTime{});
    }

private:
    CameraObject& object() const { return m_camera->object(); }
    double secondsUntil(Clock::time_point time) const
    {
        return std::chrono::duration<double>(time - m_start).count();
    }

    void start();
    bool startAgain();
    void stopForRepair();
    void run();
    void accept(Frame frame, std::uint64_t trailer, const CameraSpace::FrameTimes& told,
                Clock::time_point asked);
    void placeLoss(const FrameStep& step, const CameraSpace::FrameTimes& told,
                   Clock::time_point asked);
    bool seemsRings(Clock::time_point asked) const;
    void readClocks(Clock::time_point now);
    void deliver(Frame frame);
    void tellReady();
    void noteFailure(ErrorCode code);
    bool isSilence(Clock::duration quiet) const;
    bool isOutage(ErrorCode code) const;
    void repair();
    bool reconnect();
    void beginOutage(bool isOnline);
    void setCause(Outage::Cause cause);
    void endOutage();
    void emitEvent(StreamEvent::Kind kind, const std::string& reason = {});
    void pause(std::chrono::milliseconds time);

    const std::shared_ptr<Camera> m_camera;
    const StreamOptions m_options;
    Clock::time_point m_start;

    // Used by the thread only.
    FrameNumbers m_numbers;
    StreamPace m_pace;                                   // between frames, without the outages
    std::atomic<std::chrono::nanoseconds> m_period{0ns}; // as the pace has it; read by all
    std::optional<Outage> m_outage;
    std::string m_refusal; // as last told in this outage
    int m_vainRestarts = 0;
    std::optional<double> m_lastFrame; // seconds
    Clock::time_point m_lastReturn;    // of the grab that brought it
    Clock::time_point m_lastStart;     // of a repair
    StreamLosses m_untold;             // of grabs that failed; the next frame's numbers show them
    double m_ringFrames = 0;
    int m_sensorCount = 2;

    std::mutex m_runMutex; // starting and stopping in the driver; taken before m_mutex
    std::mutex m_joinMutex;
    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    bool m_isStopping = false;
    std::deque<Frame> m_queue;
    StreamCounters m_counters;
    Clock::time_point m_lastReading; // of both clocks
    WallClock m_realtime;
    WallClock m_tai;
    std::vector<Outage> m_outages;
    std::deque<StreamEvent> m_events;

    std::thread m_thread;                      // guarded by m_joinMutex
    static thread_local const Core* ownThread; // the stream whose thread this is
};

thread_local const Stream::Core* Stream::Core::ownThread = nullptr;

/// @throws Error
void Stream::Core::start()
{
    // The driver tells the size of its ring while the stream is stopped.
    QVariant ringFrames = 16;
    object().readProperty(QLatin1String(keys::cacheFrameCount), ringFrames);
    m_ringFrames = ringFrames.toDouble();
    m_sensorCount = m_camera->facts().sensorCount;
    check(object()->startStream(0), "starting the stream");
    m_start = Clock::now();
    m_lastReturn = m_start;
    readClocks(m_start);
    m_counters.lastFrame = m_start;
}

bool Stream::Core::startAgain()
{
    ErrorCode code = ErrorCode::NotStreaming;
    {
        const std::lock_guard lock(m_runMutex);
        if (isStopping()) {
            return false;
        }
        code = object()->startStream(0);
    }
    m_lastStart = Clock::now();
    if (code != ErrorCode::Success) {
        emitEvent(StreamEvent::Kind::Refused, Error("starting the stream", code).what());
    }
    return code == ErrorCode::Success;
}

void Stream::Core::stopForRepair()
{
    const std::lock_guard lock(m_runMutex);
    object()->stopStream(0);
}

void Stream::Core::run()
{
    ContractSpace::Images blocks;
    while (!isStopping()) {
        const Clock::time_point asked = Clock::now();
        CameraSpace::FrameTimes told;
        ErrorCode code = grabTimed(object(), blocks, told);
        if (code == ErrorCode::Success) {
            const std::uint64_t trailer =
                !blocks.empty() && ContractSpace::isWellFormed(*blocks.front())
                    ? ContractSpace::trailerOf(*blocks.front())
                    : 0;
            try {
                Frame frame = frameOf(m_camera->m_driver, blocks, m_sensorCount);
                if (frame.imageCount > 0) {
                    accept(std::move(frame), trailer, told, asked);
                    continue;
                }
                code = ErrorCode::SplitFailed;
            } catch (const std::bad_alloc&) {
                code = ErrorCode::SplitException;
            }
        }
        if (isStopping()) {
            break; // the stop woke the grab
        }
        noteFailure(code);
        if (isSplitFailure(code)) { // the driver had this frame, and has told of those before it
            m_untold.ring += told.ringLosses + 1;
            m_untold.library += told.libraryLosses;
        }
        if (m_options.keepAlive && isOutage(code)) {
            repair();
        } else if (Clock::now() - asked < pauseAfterFailure) {
            pause(pauseAfterFailure);
        }
    }
    if (m_outage) {
        m_outage->repair = Outage::Repair::None;
        m_outage->seconds = secondsUntil(Clock::now()) - m_outage->begin;
        endOutage();
    }
}

void Stream::Core::accept(Frame frame, std::uint64_t trailer, const CameraSpace::FrameTimes& told,
                          Clock::time_point asked)
{
    const Clock::time_point now = Clock::now();
    frame.step = m_numbers.follow(trailer);
    frame.arrival = now;
    frame.times = timesOf(told, now);
    frame.wait = now - asked;
    frame.exposure = m_camera->knownExposure();
    frame.gain = m_camera->knownGain();

    const double second = secondsUntil(now);
    const bool wasOut = m_outage.has_value();
    placeLoss(frame.step, told, asked);
    readClocks(now);
    if (!wasOut && m_lastFrame) {
        m_pace.noteFrame(second - *m_lastFrame, frame.step);
        m_period = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(m_pace.period()));
    }
    m_lastReturn = now;
    m_lastFrame = second;
    if (wasOut) {
        m_outage->missing = frame.step.missing;
        m_outage->isRenumbered = frame.step.restarted;
        m_outage->isMissingExact =
            !frame.step.restarted && m_pace.isCountable(second - m_outage->begin);
        const bool isRestarted = m_outage->repair == Outage::Repair::Restarted;
        m_outage->seconds = second - m_outage->begin;
        emitEvent(isRestarted ? StreamEvent::Kind::Restarted : StreamEvent::Kind::Back);
        endOutage();
    }
    deliver(std::move(frame));
}

/// Counts a frame and what is missing before it.
void Stream::Core::placeLoss(const FrameStep& step, const CameraSpace::FrameTimes& told,
                             Clock::time_point asked)
{
    const std::uint64_t missing = step.missing;
    const StreamLosses before = std::exchange(m_untold, {});
    const bool isTold = told.payloadSource != CameraSpace::FrameTimeSource::None;
    const bool isAllOfRing = !isTold && missing > 0 && seemsRings(asked);
    const std::uint64_t ring =
        isAllOfRing ? missing : std::min<std::uint64_t>(missing, before.ring + told.ringLosses);
    const std::uint64_t library =
        std::min<std::uint64_t>(missing - ring, before.library + told.libraryLosses);
    const std::lock_guard lock(m_mutex);
    ++m_counters.frames;
    m_counters.lost.ring += ring;
    m_counters.lost.library += library;
    m_counters.lost.camera += missing - ring - library;
    m_counters.gaps += missing > 0 ? 1U : 0U;
    m_counters.repeated += step.repeated ? 1U : 0U;
    m_counters.renumberings += step.restarted ? 1U : 0U;
    m_counters.lastFailure = ErrorCode::Success;
    m_counters.outage.reset();
    m_counters.lastFrame = Clock::now();
}

/// The ring overflows when it is not read from for longer than it holds frames for.
bool Stream::Core::seemsRings(Clock::time_point asked) const
{
    const std::chrono::duration<double> away = asked - m_lastReturn;
    const double period = m_pace.period();
    auto order = CameraSpace::TriggerMode::Oldest;
    object()->getTriggerMode(order, 0);
    const double room = order == CameraSpace::TriggerMode::Newest ? 1.0 : m_ringFrames;
    return !m_outage && period > 0.0 && away.count() >= period * room;
}

void Stream::Core::readClocks(Clock::time_point now)
{
    constexpr auto pairPause = 1s;
    const std::lock_guard lock(m_mutex);
    if (now - m_lastReading >= pairPause) {
        m_lastReading = now;
        m_realtime.note(WallClock::read(WallClock::Kind::Realtime));
        m_tai.note(WallClock::read(WallClock::Kind::Tai));
    }
}

void Stream::Core::deliver(Frame frame)
{
    if (m_options.onFrame) {
        if (isStopping()) { // an event's callback may have destroyed what takes frames
            const std::lock_guard lock(m_mutex);
            ++m_counters.lost.queue;
        } else {
            m_options.onFrame(frame);
        }
        return;
    }
    const std::size_t capacity =
        m_options.policy == QueuePolicy::Newest ? 1 : std::max<std::size_t>(1, m_options.capacity);
    {
        std::unique_lock lock(m_mutex);
        if (m_options.policy == QueuePolicy::Block) {
            m_changed.wait(lock, [&] { return m_queue.size() < capacity || m_isStopping; });
        }
        if (m_queue.size() >= capacity) {
            if (m_options.policy == QueuePolicy::Block) {
                ++m_counters.lost.queue; // it came too late for the end
                return;
            }
            noteDrop(m_queue.front(), m_queue.size() > 1 ? m_queue[1] : frame);
            m_queue.pop_front();
            ++m_counters.lost.queue;
        }
        m_queue.push_back(std::move(frame));
    }
    tellReady();
}

void Stream::Core::tellReady()
{
    m_changed.notify_all();
    if (m_options.onReady) {
        m_options.onReady();
    }
}

void Stream::Core::noteFailure(ErrorCode code)
{
    const std::lock_guard lock(m_mutex);
    m_counters.timeouts += code == ErrorCode::GrabTimeout ? 1U : 0U;
    m_counters.unusable += isSplitFailure(code) ? 1U : 0U;
    m_counters.lastFailure = code;
}

/// Whether a failed grab means more than one frame that is damaged or late.
bool Stream::Core::isOutage(ErrorCode code) const
{
    const bool isLateOrDamaged = code == ErrorCode::GrabTimeout || isSplitFailure(code);
    return !isLateOrDamaged || (counters().silence > 0s && isSilence(Clock::now() - m_lastStart));
}

/// Whether a camera that sends would have sent a frame meanwhile.
bool Stream::Core::isSilence(Clock::duration quiet) const
{
    const std::chrono::nanoseconds known = m_period;
    const std::chrono::nanoseconds period = known > 0ns ? known : m_options.slowestPeriod;
    // One lost frame is no silence.
    return quiet >= m_options.patience && quiet >= 2 * m_camera->knownExposure() &&
           2 * quiet >= 5 * period;
}

/// Takes the next step towards a frame.
void Stream::Core::repair()
{
    const bool isOnline = m_camera->status().isOnline;
    if (!m_outage) {
        beginOutage(isOnline);
    } else if (!isOnline) {
        setCause(Outage::Cause::Gone);
    }
    if (isStopping()) {
        return; // told by a callback, or while the camera was asked
    }
    if (isOnline && m_vainRestarts < enoughRestarts) {
        ++m_vainRestarts;
        stopForRepair();
        try {
            m_camera->restoreSettings();
        } catch (const std::exception&) {
            return; // the next repair goes further
        }
        if (startAgain()) {
            m_outage->repair = Outage::Repair::Restarted;
        }
    } else if (reconnect()) {
        m_vainRestarts = 0;
        m_outage->repair = Outage::Repair::Reconnected;
    } else {
        pause(searchPause);
    }
}

bool Stream::Core::reconnect()
{
    stopForRepair();
    try {
        m_camera->reopen();
    } catch (const Error& error) {
        if (!isAbsence(error)) {
            emitEvent(StreamEvent::Kind::Refused, error.what());
        }
        return false;
    } catch (const std::exception& error) {
        emitEvent(StreamEvent::Kind::Refused, error.what());
        return false;
    }
    return startAgain();
}

void Stream::Core::beginOutage(bool isOnline)
{
    m_outage = Outage{};
    m_outage->begin = m_lastFrame.value_or(0.0);
    setCause(isOnline ? Outage::Cause::Silent : Outage::Cause::Gone);
    m_vainRestarts = 0;
    m_refusal.clear();
    emitEvent(StreamEvent::Kind::Lost);
}

void Stream::Core::setCause(Outage::Cause cause)
{
    m_outage->cause = cause;
    const std::lock_guard lock(m_mutex);
    m_counters.outage = cause;
}

void Stream::Core::endOutage()
{
    const std::lock_guard lock(m_mutex);
    m_outages.push_back(*m_outage);
    m_outage.reset();
}

void Stream::Core::emitEvent(StreamEvent::Kind kind, const std::string& reason)
{
    const bool isOld = kind == StreamEvent::Kind::Refused && reason == m_refusal;
    m_refusal = reason;
    if (isOld || (m_options.onEvent && isStopping())) {
        return;
    }
    StreamEvent event{kind, m_outage.value_or(Outage{}), reason};
    if (m_options.onEvent) {
        m_options.onEvent(event);
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        if (m_events.size() >= mostEvents) {
            m_events.pop_front();
        }
        m_events.push_back(std::move(event));
    }
    tellReady();
}

void Stream::Core::pause(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, time, [this] { return m_isStopping; });
}

Stream::Stream(std::shared_ptr<Camera> camera, StreamOptions options)
    : m_core(std::make_shared<Core>(std::move(camera), std::move(options)))
{
    m_core->launch(m_core);
}

Stream::~Stream()
{
    m_core->close();
}

std::optional<Frame> Stream::next(std::chrono::milliseconds longest)
{
    return m_core->next(longest);
}

std::optional<StreamEvent> Stream::nextEvent()
{
    return m_core->nextEvent();
}

bool Stream::isReady() const
{
    return m_core->isReady();
}

void Stream::stop()
{
    m_core->stop();
}

bool Stream::isStopped() const
{
    return m_core->isStopping();
}

StreamCounters Stream::counters() const
{
    return m_core->counters();
}

std::vector<Outage> Stream::outages() const
{
    return m_core->outages();
}

WallTime Stream::wallTime(FrameTimes::time_point time, WallClock::Kind kind) const
{
    return m_core->wallTime(time, kind);
}

const std::shared_ptr<Camera>& Stream::camera() const
{
    return m_core->camera();
}

} // namespace zrn
