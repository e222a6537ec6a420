#pragma once

#include "client/camera.h"
#include "process.h"

#include <condition_variable>
#include <mutex>

namespace zrnpy
{

/// Counts the ends of a camera's streams that are under way.
///
/// Thread safety: thread-safe.
class StreamEnds
{
public:
    /// An end, as long as it lives.
    class UnderWay
    {
    public:
        explicit UnderWay(StreamEnds& ends)
            : m_ends(ends)
        {
            const std::lock_guard lock(m_ends.m_mutex);
            ++m_ends.m_count;
        }
        ~UnderWay()
        {
            const std::lock_guard lock(m_ends.m_mutex);
            --m_ends.m_count;
            m_ends.m_changed.notify_all();
        }
        UnderWay(const UnderWay&) = delete;
        UnderWay& operator=(const UnderWay&) = delete;

    private:
        StreamEnds& m_ends;
    };

    /// Returns when none is under way.
    void wait()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_count == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_count = 0;
};

/// A connected camera, until it is closed.
class Camera
{
public:
    explicit Camera(std::shared_ptr<zrn::Camera> camera)
        : m_camera(std::move(camera))
    {
    }

    /// @throws zrn::Error when it is closed, or this is another process
    [[nodiscard]] std::shared_ptr<zrn::Camera> get() const;

    /// Lets go of the camera.
    void close();

    [[nodiscard]] const std::shared_ptr<StreamEnds>& streamEnds() const { return m_streamEnds; }

private:
    ProcessBound<zrn::Camera> m_camera;
    const std::shared_ptr<StreamEnds> m_streamEnds = std::make_shared<StreamEnds>();
};

} // namespace zrnpy
