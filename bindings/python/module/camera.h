#pragma once

#include "client/camera.h"
#include "process.h"

namespace zrnpy
{

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

private:
    ProcessBound<zrn::Camera> m_camera;
};

} // namespace zrnpy
