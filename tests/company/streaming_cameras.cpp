#include "streaming_cameras.h"

#include "checks/images.h"
#include "client/property_keys.h"

namespace company
{

StreamingCameras::StreamingCameras(IFactory& factory)
{
    constexpr int patientGrab = 20'000; // milliseconds
    const int found = factory.enumDevice();
    for (int i = 0; i < found; ++i) {
        auto camera = std::make_unique<zrn::CameraObject>(factory);
        if ((*camera)->connectDeviceByIndex(i) != ErrorCode::Success ||
            (*camera)->startStream(0) != ErrorCode::Success) {
            continue;
        }
        camera->writeProperty(zrn::keys::maxGrabWaitTime, patientGrab);
        m_cameras.push_back(std::move(camera));
    }
    for (const auto& camera : m_cameras) {
        std::atomic<int>& frames = m_frames.emplace_back(0);
        m_threads.emplace_back([this, &camera, &frames] { grabFrom(*camera, frames); });
    }
}

StreamingCameras::~StreamingCameras()
{
    m_ends = true;
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

bool StreamingCameras::allDeliver()
{
    constexpr std::chrono::minutes patience(1); // for a machine that is busy with other things
    const auto end = std::chrono::steady_clock::now() + patience;
    for (const std::atomic<int>& frames : m_frames) {
        const int before = frames;
        while (frames == before && !m_hasFailed) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return !m_hasFailed;
}

void StreamingCameras::grabFrom(zrn::CameraObject& camera, std::atomic<int>& frames)
{
    while (!m_ends) {
        ContractSpace::Images images;
        if (ContractSpace::grab(*camera, images) == ErrorCode::Success) {
            ++frames;
        } else {
            m_hasFailed = true;
        }
    }
}

} // namespace company
