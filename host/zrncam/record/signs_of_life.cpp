#include "record/signs_of_life.h"

#include "common/service_manager.h"

#include <algorithm>
#include <utility>

SignsOfLife::OfCamera::~OfCamera()
{
    m_signs.forget(m_name);
}

void SignsOfLife::OfCamera::tell(const zrn::StreamCounters& counters)
{
    const std::uint64_t before = std::exchange(m_frames, counters.frames);
    m_signs.tell(m_name, counters.outage || counters.frames != before);
}

void SignsOfLife::OfCamera::tellWriting()
{
    m_signs.tell(m_name, true);
}

void SignsOfLife::tell(const QString& name, bool isAlive)
{
    const std::lock_guard lock(m_mutex);
    const auto [camera, isNew] = m_cameras.try_emplace(name, false);
    if (isNew) {
        zrnhost::tellServiceManager("READY=1");
    }
    camera->second = camera->second || isAlive;
    tellManager();
}

/// Others do not wait for it any more, nor does its end speak for them.
void SignsOfLife::forget(const QString& name)
{
    const std::lock_guard lock(m_mutex);
    m_cameras.erase(name);
    tellManager();
}

void SignsOfLife::tellManager()
{
    if (m_cameras.empty() ||
        !std::ranges::all_of(m_cameras, [](const auto& camera) { return camera.second; })) {
        return;
    }
    zrnhost::tellServiceManager("WATCHDOG=1");
    for (auto& [name, isAlive] : m_cameras) {
        isAlive = false;
    }
}
