#pragma once

#include "common/camera.h"
#include "common/frame_numbers.h"
#include "common/image_blocks.h"
#include "recording/recorder.h"
#include "zrnview/device/frame_station.h"

#include <atomic>

namespace zrnview
{

/// What a grab loop has seen since it was started.
struct GrabCounters {
    quint64 frames = 0;
    quint64 missing = 0;  ///< frame numbers skipped
    quint64 repeated = 0; ///< frames with the number of the one before
    quint64 timeouts = 0; ///< grabs that no frame arrived for
    quint64 unusable = 0; ///< grabs that failed otherwise, and frames with impossible sizes
    ErrorCode lastFailure = ErrorCode::Success;
    Clock::time_point lastFrame; ///< when the last frame came, or when the loop was started
};

/// Grabs from a streaming camera on a thread of its own, as fast as frames arrive: to the screen
/// the newest, to a recorder all of them.
///
/// Thread safety: thread-safe, but start and stop belong to one thread.
class GrabLoop
{
public:
    explicit GrabLoop(FrameStation& station)
        : m_station(station)
    {
    }
    ~GrabLoop() { stop(); }
    GrabLoop(const GrabLoop&) = delete;
    GrabLoop& operator=(const GrabLoop&) = delete;

    /// @param camera stays until stop() @param sensorCount value of the SensorCount property
    void start(zrnhost::Camera& camera, int sensorCount);
    /// Waits until the thread has ended. The stream must have been stopped, or the wait may last as
    /// long as a grab.
    void stop();

    /// Sends all further frames to @p recorder as well; null for none.
    void setRecorder(std::shared_ptr<zrnrecording::Recorder> recorder);

    GrabCounters counters() const;

private:
    void run(zrnhost::Camera& camera, int sensorCount);
    void accept(zrnhost::ImageBlocks& blocks, int sensorCount, Clock::time_point asked);
    void noteFailure(ErrorCode code);

    FrameStation& m_station;
    std::atomic<bool> m_stopping = false;
    zrnhost::FrameNumbers m_numbers; // used by m_thread only

    mutable std::mutex m_mutex; // guards what follows
    GrabCounters m_counters;
    std::shared_ptr<zrnrecording::Recorder> m_recorder;

    std::thread m_thread;
};

} // namespace zrnview
