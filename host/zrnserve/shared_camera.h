#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <memory>
#include <mutex>
#include <prometheus/summary.h>
#include <string>
#include <vector>

namespace zrnserve
{

/// What is shown of a camera: one image of each frame, or both side by side.
enum class View { A, B, Both };

constexpr std::array<View, 3> views = {View::A, View::B, View::Both};

/// As addresses end.
const char* nameOf(View view);

struct CameraCounts {
    bool isOpen = false;
    std::uint64_t frames = 0;
    std::uint64_t lostCamera = 0;
    std::uint64_t lostLibrary = 0;
    std::uint64_t lostRing = 0;
    std::uint64_t lostQueue = 0;
    std::uint64_t outages = 0;
    std::uint64_t opened = 0;
    std::uint64_t skipped = 0; ///< images that an encoder was too slow for
};

/// One camera, open while anybody looks at it, in a pipeline of its own. Its images go to the
/// pipelines of the views without waiting for them: where one is too slow, the oldest image makes
/// room.
///
/// Thread safety: thread-safe.
class SharedCamera : public std::enable_shared_from_this<SharedCamera>
{
public:
    explicit SharedCamera(std::string serial);
    ~SharedCamera();
    SharedCamera(const SharedCamera&) = delete;
    SharedCamera& operator=(const SharedCamera&) = delete;

    const std::string& serial() const { return m_serial; }

    /// The camera's images go to an appsrc for as long as this object lives; the last one closes
    /// the camera.
    class Viewing
    {
    public:
        Viewing(std::shared_ptr<SharedCamera> camera, GstAppSrc* images)
            : m_camera(std::move(camera))
            , m_images(images)
        {
        }
        ~Viewing() { m_camera->leave(m_images); }
        Viewing(const Viewing&) = delete;
        Viewing& operator=(const Viewing&) = delete;

    private:
        const std::shared_ptr<SharedCamera> m_camera;
        GstAppSrc* const m_images;
    };

    /// Opens the camera if nobody has, and waits for its first frame.
    /// @return null when it cannot be had, sends no frames or has no such image; the log says which
    std::unique_ptr<Viewing> look(View view, GstAppSrc* images);

    /// Nobody may look from now on; who waits for a first frame waits no more.
    void end();

    /// Closes the camera, whoever looks.
    void close();

    CameraCounts counts() const;
    /// From a frame's first bytes to its way to the viewers, in seconds.
    prometheus::ClientMetric latency() const { return m_latency.Collect(); }

private:
    struct Viewer {
        View view;
        GstAppSrc* images; ///< a reference
    };

    bool enter(View view, GstAppSrc* images);
    bool open();
    void closePipeline();
    void leave(GstAppSrc* images);
    void take(int image, GstSample* sample);
    void show(View view, GstBuffer* buffer, GstCaps* caps, GstClockTime when);
    void showBoth(GstSample* sampleB, GstClockTime when);
    bool isShown(View view) const;
    void noteMessage(GstMessage* message);
    template <int image>
    static GstFlowReturn onSample(GstAppSink* sink, gpointer self);
    static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, gpointer self);

    const std::string m_serial;
    GstClock* const m_clock;

    std::mutex m_lifecycle; ///< one opens or closes at a time; taken before m_mutex
    GstElement* m_pipeline = nullptr;

    mutable std::mutex m_mutex; ///< everything below
    std::condition_variable m_changed;
    GstElement* m_source = nullptr;
    std::vector<Viewer> m_viewers;
    GstSample* m_newestA = nullptr;
    std::array<std::uint64_t, 2> m_images = {}; ///< A and B since the camera was opened
    bool m_isBroken = false;
    bool m_isEnding = false;
    CameraCounts m_before; ///< what was counted until the camera was opened

    prometheus::Summary m_latency;
};

} // namespace zrnserve
