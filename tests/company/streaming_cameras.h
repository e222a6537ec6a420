#pragma once

#include "client/camera_object.h"
#include "factory_interface.h"

#include <atomic>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

namespace company
{

/// A host's cameras, all that the driver finds, from each of which a thread grabs.
class StreamingCameras
{
public:
    explicit StreamingCameras(IFactory& factory);
    ~StreamingCameras();
    StreamingCameras(const StreamingCameras&) = delete;
    StreamingCameras& operator=(const StreamingCameras&) = delete;

    std::size_t count() const { return m_cameras.size(); }

    /// Waits for another frame of each. @return false when a grab has failed since the start
    bool allDeliver();

private:
    void grabFrom(zrn::CameraObject& camera, std::atomic<int>& frames);

    std::atomic<bool> m_ends = false;
    std::atomic<bool> m_hasFailed = false;
    std::vector<std::unique_ptr<zrn::CameraObject>> m_cameras;
    std::deque<std::atomic<int>> m_frames;
    std::vector<std::thread> m_threads;
};

} // namespace company
