#pragma once

#include "zrnserve/shared_camera.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gst/gst.h>
#include <map>
#include <set>
#include <thread>

namespace zrnserve
{

/// Which cameras are on the bus, and those that were. One whose serial nobody has asked for since
/// it was plugged in is opened for a moment, in a thread of its own.
///
/// Thread safety: thread-bound, to that of the default main context.
class CameraList
{
public:
    struct Entry {
        std::shared_ptr<SharedCamera> camera;
        std::string port; ///< the last one
        bool isPresent = false;
    };
    using Change = std::function<void(const Entry&)>;

    /// @param change is called for every camera that is there, comes or goes.
    /// @throws std::runtime_error without the element that reads the cameras
    explicit CameraList(Change change);
    ~CameraList();
    CameraList(const CameraList&) = delete;
    CameraList& operator=(const CameraList&) = delete;

    /// A camera that is known from now on, whether it is there or not.
    std::shared_ptr<SharedCamera> expect(const std::string& serial);

    const std::map<std::string, Entry>& bySerial() const { return m_entries; }

private:
    using Clock = std::chrono::steady_clock;

    void update(GstDevice* device, bool isPresent);
    void identify();
    bool isAwaited() const;

    const Change m_change;
    GstDeviceProvider* m_provider = nullptr;
    GstBus* m_bus = nullptr;
    std::map<std::string, Entry> m_entries;

    std::map<std::string, Clock::time_point> m_unnamed; ///< ports, and since when
    std::set<std::string> m_tried;                      ///< those that have been asked before
    guint m_timer = 0;
    std::atomic<bool> m_isIdentifying = false;
    std::thread m_identifier;
};

} // namespace zrnserve
