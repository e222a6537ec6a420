#pragma once

#include "client/camera.h"
#include "client/stream.h"
#include "source_settings.h"

#include <array>
#include <atomic>
#include <chrono>
#include <gst/base/gstflowcombiner.h>
#include <gst/gst.h>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace zrngst
{

/// The camera behind an element, and the task that pushes its frames to both pads.
///
/// The camera is opened in READY and streams in PLAYING. One thread serves both pads, so that the
/// two images of a frame leave one after the other with the same time; as behind a tee, a branch
/// that may block begins with a queue.
///
/// Locks, in this order: that of the task, which is held while a frame is pushed; that of the
/// stream, which is held while one is waited for; that of the settings. Messages are posted and
/// events sent under none but that of the task. The lock over resting is taken alone.
///
/// Thread safety: thread-safe, as long as one thread changes states.
class FrameSource
{
public:
    /// @param element that owns this @param padA, padB its pads
    FrameSource(GstElement* element, GstPad* padA, GstPad* padB);
    ~FrameSource();
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;

    // The changes of state, in their order.
    void open(); ///< @throws zrn::Error
    void prepare();
    void play(); ///< @throws zrn::Error
    void pause();
    void unprepare(); ///< after the pads were deactivated
    void close();

    void requestEnd();
    void beginFlush();
    void endFlush(gboolean resetTime);

    /// What both pads carry, or may carry before a camera is open. Owned by the caller.
    [[nodiscard]] GstCaps* caps() const;
    /// How long after its time a frame may be pushed, at least and at most.
    [[nodiscard]] std::pair<GstClockTime, GstClockTime> latency() const;
    /// Up to which running time frames or gaps were sent.
    [[nodiscard]] GstClockTime position() const { return m_position; }

    [[nodiscard]] SourceSettings settings() const;
    /// Changes settings that take effect with the next state.
    template <typename Change>
    void change(const Change& change)
    {
        const std::lock_guard lock(m_settingsMutex);
        change(m_settings);
    }
    /// Sets a control, on the camera too where one is open. @throws zrn::Error
    void setControl(std::size_t index, int value);
    /// @throws zrn::Error
    int control(std::size_t index) const;
    [[nodiscard]] zrn::StreamCounters counters() const;

    /// Resets the camera, and forgets what was set. @throws zrn::Error
    void reset();
    /// The newest image of a pad; null when there is none. Owned by the caller.
    GstSample* snapshot(const char* padName) const;

private:
    /// One of the pads.
    struct Side {
        GstPad* pad;
        char letter;
        bool needsStart = true;
        bool needsSegment = true;
        bool needsCopies = false; ///< who receives the images cannot take their rows as they are
    };

    void step();
    bool handle(const zrn::StreamEvent& event);
    void push(const zrn::Frame& frame);
    GstFlowReturn pushImage(Side& side, const zrn::Frame& frame, GstClockTime pts);
    void bridge();
    void announce(Side& side);
    void negotiate(Side& side);
    void finish(GstFlowReturn flow);
    void rest();
    void sendEnd();
    [[nodiscard]] GstClockTime runningTime(std::chrono::steady_clock::time_point moment) const;
    [[nodiscard]] std::shared_ptr<zrn::Camera> camera() const;

    GstElement* const m_element;
    GstTask* const m_task;
    GstFlowCombiner* const m_combiner;
    GRecMutex m_taskMutex;

    // Used by the task only, and while it stands still.
    std::array<Side, 2> m_sides;
    guint m_groupId = 0;
    std::uint64_t m_pushed = 0;
    bool m_isAway = false;
    bool m_isDiscontinuous = true;

    std::atomic<GstClockTime> m_position = 0; ///< running time that was pushed up to
    std::atomic<bool> m_isBeginning = false;
    std::atomic<bool> m_isEnding = false;
    std::atomic<bool> m_isPlaying = false;

    std::mutex m_restMutex; // guards m_mayRest, and stopping the task
    bool m_mayRest = false;

    std::mutex m_streamMutex;                      // guards what follows
    std::chrono::steady_clock::time_point m_begin; ///< of PLAYING
    std::unique_ptr<zrn::Stream> m_stream;

    mutable std::mutex m_settingsMutex; // guards what follows
    SourceSettings m_settings;
    std::shared_ptr<zrn::Camera> m_camera;
    std::chrono::nanoseconds m_period{}; ///< of the camera's frames; 0: unknown
    zrn::StreamCounters m_counters;
    std::optional<zrn::Frame> m_newest;
};

} // namespace zrngst
