#pragma once

#include "pictures/canvas.h"
#include "pictures/frame_composer.h"
#include "pictures/scene.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zrnsim
{

/// One scene as light falls on a sensor: what does not move is painted once and kept. Reentrant.
class SceneView
{
public:
    SceneView(const Scene& scene, int width, int height, const std::string& caption);

    /// The scene at the time of a frame; valid until the next call.
    const Canvas& at(std::uint32_t frameNumber);

private:
    const Scene& m_scene;
    Canvas m_background;
    Canvas m_canvas;
};

/// The images that the sensors of one camera give, exposure and gains applied. Reentrant.
class PictureSource
{
public:
    /// Fits the images to another request, whose width and height must be above 0.
    void render(const FrameRequest& request);

    /// The images of the last request, width x height bytes. Image B is left out by cameras with
    /// one image only; their image A shows both scenes side by side.
    std::vector<std::uint8_t> a;
    std::vector<std::uint8_t> b;

private:
    struct Geometry {
        int sensorType;
        int width;
        int height;
        bool operator==(const Geometry&) const = default;
    };

    void paintAnew(const Geometry& geometry);

    std::optional<Geometry> m_geometry;
    std::optional<SceneView> m_chart;
    std::optional<SceneView> m_landscape;
};

} // namespace zrnsim
