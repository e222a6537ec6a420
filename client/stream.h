#pragma once

#include "client/camera.h"
#include "client/frame.h"
#include "client/outage.h"
#include "client/wall_clock.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zrn
{

/// What becomes of a frame that finds the queue full.
enum class QueuePolicy {
    Newest, ///< the queue holds one frame, which the next one replaces
    All,    ///< the oldest frame in the queue makes room
    Block,  ///< grabbing pauses until there is room; the driver's ring then fills, and overflows
};

/// Frames that were not delivered, by the place where they were lost.
struct StreamLosses {
    /// Numbers that the driver never had: in the camera or on the way from it.
    std::uint64_t camera = 0;
    /// Arrived whole, and dropped by libuvc for a newer one before the driver got it. 0 where the
    /// driver does not tell; they are the camera's then.
    std::uint64_t library = 0;
    /// Overwritten in the driver's ring, passed over for the newest, or not to be unpacked. Where
    /// the driver does not tell, as it seems from how long the ring was not read from.
    std::uint64_t ring = 0;
    std::uint64_t queue = 0; ///< dropped from the stream's queue
};

/// What a stream has seen since it was started.
struct StreamCounters {
    std::uint64_t frames = 0; ///< grabbed
    StreamLosses lost;
    std::uint64_t gaps = 0;         ///< places where frame numbers are missing
    std::uint64_t repeated = 0;     ///< frames with the number of the one before
    std::uint64_t renumberings = 0; ///< places where the numbers jumped back
    std::uint64_t timeouts = 0;     ///< grabs that no frame arrived for
    std::uint64_t unusable = 0;     ///< frames that could not be unpacked or have impossible sizes
    ErrorCode lastFailure = ErrorCode::Success; ///< of a grab since the last frame
    /// When the last frame came, or when the stream was started.
    std::chrono::steady_clock::time_point lastFrame;
    /// Time since then, once it is longer than the stream's patience, twice the exposure and two
    /// and a half periods.
    std::chrono::nanoseconds silence{};
    /// From one frame of the camera to the next, without the outages; 0 while it is not known.
    std::chrono::nanoseconds period{};
    /// Why no frames come, as long as a stream that is kept alive has none.
    std::optional<Outage::Cause> outage;

    /// Frame numbers skipped.
    [[nodiscard]] std::uint64_t missing() const { return lost.camera + lost.library + lost.ring; }
};

/// What happens to a stream that is kept alive.
struct StreamEvent {
    enum class Kind {
        Lost,      ///< no frames; begin and cause of the outage are known
        Refused,   ///< the camera is there, but cannot be had or started; tried again
        Restarted, ///< frames again, after the stream was stopped and started
        Back,      ///< frames again, after the camera was opened anew or by itself
    };
    Kind kind = Kind::Lost;
    Outage outage;
    std::string reason; ///< of Refused
};

struct StreamOptions {
    QueuePolicy policy = QueuePolicy::All;
    std::size_t capacity = 16; ///< frames that the queue holds with All and Block, at least 1
    /// Restart the stream, or open its camera anew, when no frame comes.
    bool keepAlive = false;
    /// Without a frame for this long, it is silent; for twice the exposure, or two and a half
    /// periods of its frames, if these are longer.
    std::chrono::milliseconds patience{1000};
    /// What its period may be as long as that is not known. Leaves a camera that is slower than the
    /// patience the time for its first frames.
    std::chrono::milliseconds slowestPeriod{0};
    /// Takes the frames in place of the queue. Runs on the stream's thread, which grabs nothing
    /// meanwhile. May stop and destroy the stream; must not throw.
    std::function<void(const Frame&)> onFrame{};
    /// Takes the events in place of nextEvent(), on the stream's thread likewise.
    std::function<void(const StreamEvent&)> onEvent{};
    /// Told that a frame or an event waits to be taken, or that the stream ends, for those who wait
    /// for other things as well. Runs on the stream's thread or the one that stops it; must neither
    /// use the stream nor throw.
    std::function<void()> onReady{};
};

/// A running stream: started by the constructor, ended by stop() or the destructor. A thread of its
/// own grabs every frame that the driver hands out, and no other grabs from this camera.
///
/// An outage begins when a grab finds nothing for as long as the driver waits (the property
/// MaxGrabWaitTime), and the stream is silent. One that is kept alive then asks the camera whether
/// it is there: one that answers gets its stream restarted, twice; one that does not, or stays
/// silent, is opened anew, by serial and port, over and over. What was set on the camera is set
/// again.
///
/// Destroying is safe in every state, also while it repairs and from its own callbacks: it waits
/// for the call to the driver that runs, and for a callback that runs on the stream's thread,
/// unless it is called from there. Frames outlive the stream.
///
/// Thread safety: thread-safe; the destructor belongs to one thread.
class Stream
{
public:
    /// @throws Error when the stream cannot be started, or the camera has one.
    explicit Stream(std::shared_ptr<Camera> camera, StreamOptions options = {});
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// The oldest frame in the queue, once there is one. @return nothing when there was none for
    /// this long, or when the stream has ended and the queue is empty.
    std::optional<Frame> next(std::chrono::milliseconds longest);

    /// The oldest event that was not taken yet, without waiting; some hundred are kept.
    std::optional<StreamEvent> nextEvent();

    /// Whether a frame or an event waits to be taken, or the stream has ended: what onReady tells.
    [[nodiscard]] bool isReady() const;

    /// Ends the stream and wakes who waits for frames. Those in the queue stay.
    void stop();
    [[nodiscard]] bool isStopped() const;

    [[nodiscard]] StreamCounters counters() const;
    /// Outages that are over; after stop() also the one that was not.
    [[nodiscard]] std::vector<Outage> outages() const;
    [[nodiscard]] const std::shared_ptr<Camera>& camera() const;

    /// What the time of a frame is on a clock that others share. Both clocks are read once a second
    /// while frames come, and for a time since the last reading; four minutes of readings are kept.
    [[nodiscard]] WallTime wallTime(FrameTimes::time_point time,
                                    WallClock::Kind kind = WallClock::Kind::Realtime) const;

private:
    class Core;
    const std::shared_ptr<Core> m_core; // shared with its thread
};

} // namespace zrn
