#include "record/signs_of_life.h"

#include "common/service_manager.h"

#include <algorithm>

void SignsOfLife::tell(const QString& name, const zrn::StreamCounters& counters)
{
    const std::lock_guard lock(m_mutex);
    const auto [camera, isNew] = m_cameras.try_emplace(name);
    if (isNew) {
        zrnhost::tellServiceManager("READY=1");
    }
    Camera& state = camera->second;
    state.isAlive = state.isAlive || counters.outage || counters.frames != state.frames;
    state.frames = counters.frames;
    if (std::ranges::all_of(m_cameras, [](const auto& one) { return one.second.isAlive; })) {
        tellAlive();
    }
}

void SignsOfLife::forget(const QString& name)
{
    const std::lock_guard lock(m_mutex);
    m_cameras.erase(name);
    tellAlive();
}

void SignsOfLife::tellAlive()
{
    zrnhost::tellServiceManager("WATCHDOG=1");
    for (auto& [name, camera] : m_cameras) {
        camera.isAlive = false;
    }
}
