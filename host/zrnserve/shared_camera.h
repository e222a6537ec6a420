#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <memory>
#include <mutex>
#include <prometheus/summary.h>
#include <string>
#include <thread>
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
    std::uint64_t gone = 0;    ///< outages of a camera that left the bus
    std::uint64_t silent = 0;  ///< of one that sent nothing
    std::uint64_t refused = 0; ///< attempts to have it back
    std::uint64_t damaged = 0; ///< frames
    std::uint64_t opened = 0;
    std::uint64_t skipped = 0; ///< images that an encoder was too slow for
    /// When the first bytes of the newest frame were here, in nanoseconds since 1970.
    std::uint64_t captured = 0;
};

struct CameraPatience {
    /// Longer than any exposure, and than the first frames take on a loaded machine.
    std::chrono::milliseconds firstFrame = std::chrono::seconds(10);
    /// Who looks at a camera that has just been found silent is told so at once: those who wait for
    /// one another at its address would wait as often as there are of them otherwise.
    std::chrono::milliseconds afterSilence = std::chrono::seconds(2);
};

/// One camera, open while anybody looks at it, in a pipeline of its own. Its images go to the
/// pipelines of the views without waiting for them: where one is too slow, the oldest image makes
/// room. One that fails is opened anew for as long as anybody looks.
///
/// Thread safety: thread-safe.
class SharedCamera : public std::enable_shared_from_this<SharedCamera>
{
public:
    explicit SharedCamera(std::string serial, CameraPatience patience = {});
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

    /// Opens the camera if nobody has, and waits for its first frame, together with all others who
    /// do. @param images takes as many
    /// as may wait for its encoder, and leaks the oldest
    /// @return null when it cannot be had, sends no frames or has no such image; the log says which
    std::unique_ptr<Viewing> look(View view, GstAppSrc* images);

    /// Whether the frames that it sends have image B alone.
    bool hasOneSensor() const;

    /// Nobody may look from now on; who waits for a first frame waits no more.
    void end();

    /// Closes the camera, whoever looks.
    void close();

    CameraCounts counts() const;
    /// From a frame's first bytes to its way to the viewers, in seconds.
    prometheus::ClientMetric latency() const { return m_latency.Collect(); }

private:
    using Clock = std::chrono::steady_clock;

    struct Viewer {
        View view;
        GstAppSrc* images; ///< a reference
    };

    bool enter(View view, GstAppSrc* images);
    bool open();
    bool needsRevival() const;
    void revive();
    void closePipeline();
    void leave(GstAppSrc* images);
    void take(int image, GstSample* sample);
    /// @param when by the pipelines' clock. @param captured by the wall clock, since 1970
    void show(View view, GstBuffer* buffer, GstCaps* caps, GstClockTime when,
              GstClockTime captured);
    void showBoth(GstSample* sampleB, GstClockTime when, GstClockTime captured);
    bool isShown(View view) const;
    void noteMessage(GstMessage* message);
    template <int image>
    static GstFlowReturn onSample(GstAppSink* sink, gpointer self);
    static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, gpointer self);

    const std::string m_serial;
    const CameraPatience m_patience;
    GstClock* const m_clock;

    std::mutex m_lifecycle; ///< one opens or closes at a time; taken before m_mutex
    GstElement* m_pipeline = nullptr;
    bool m_isOpen = false;
    std::thread m_reviver;

    mutable std::mutex m_mutex; ///< everything below
    std::condition_variable m_changed;
    GstElement* m_source = nullptr;
    std::vector<Viewer> m_viewers;
    GstSample* m_newestA = nullptr;
    std::array<std::uint64_t, 2> m_images = {}; ///< A and B since the camera was opened
    Clock::time_point m_firstFrameDue;
    Clock::time_point m_silentUntil; ///< as far as is known without opening it again
    bool m_isBroken = false;
    bool m_isEnding = false;
    std::string m_problem; ///< the last one, until there are frames
    Clock::time_point m_problemNoted;
    CameraCounts m_before; ///< what was counted until the camera was opened

    prometheus::Summary m_latency;
};

} // namespace zrnserve
