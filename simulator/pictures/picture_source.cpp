#include "pictures/picture_source.h"

#include "pictures/sensor_types.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zrnsim
{

namespace
{

constexpr std::uint16_t kBlackLevel = 4;

/// Light to pixel value, in 1/256, for the even and the odd columns of a row.
using RowScale = std::array<std::uint16_t, 2>;

/// The scales of the rows with R and GR cells and of those with GB and B cells.
std::array<RowScale, 2> scalesOf(const PictureControls& controls)
{
    const double exposure = 2.0 * std::clamp(controls.exposureFraction, 0.0, 1.0);
    const double gain = std::exp2(2.0 * std::clamp(controls.gainFraction, 0.0, 1.0) - 1.0);
    std::array<RowScale, 2> scales{};
    for (std::size_t cell = 0; cell < 4; ++cell) {
        const double color = controls.colorGain[cell] / 128.0;
        scales[cell / 2][cell % 2] =
            static_cast<std::uint16_t>(std::lround(exposure * gain * color * 256.0));
    }
    return scales;
}

/// @param columnScale for each column, in 1/256
void developRow(const std::uint8_t* light, const std::uint16_t* columnScale, std::size_t count,
                std::uint8_t* pixels)
{
    for (std::size_t x = 0; x < count; ++x) {
        // Products of 16 bits by 16, of which the upper half is kept: one vector instruction.
        const auto shifted = static_cast<std::uint16_t>(light[x] << 8);
        const auto value =
            static_cast<std::uint16_t>(std::uint32_t{shifted} * columnScale[x] >> 16U);
        pixels[x] = static_cast<std::uint8_t>(std::min<std::uint16_t>(value + kBlackLevel, 255));
    }
}

/// Puts one or two views side by side and applies exposure and gains.
void develop(std::initializer_list<const Canvas*> views, int height,
             const PictureControls& controls, std::vector<std::uint8_t>& image)
{
    std::size_t width = 0;
    for (const Canvas* view : views) {
        width += static_cast<std::size_t>(view->width());
    }
    const std::array<RowScale, 2> scales = scalesOf(controls);
    std::array<std::vector<std::uint16_t>, 2> columnScales;
    for (std::size_t parity = 0; parity < 2; ++parity) {
        columnScales[parity].resize(width);
        for (std::size_t x = 0; x < width; ++x) {
            columnScales[parity][x] = scales[parity][x % 2];
        }
    }
    image.resize(width * static_cast<std::size_t>(height));
    std::uint8_t* out = image.data();
    for (int y = 0; y < height; ++y) {
        const std::uint16_t* scale = columnScales[static_cast<std::size_t>(y % 2)].data();
        for (const Canvas* view : views) {
            const auto count = static_cast<std::size_t>(view->width());
            developRow(view->row(y), scale, count, out);
            scale += count;
            out += count;
        }
    }
}

} // namespace

SceneView::SceneView(const Scene& scene, int width, int height, const std::string& caption)
    : m_scene(scene)
    , m_background(width, height)
    , m_canvas(width, height)
{
    m_scene.paintBackground(m_background, caption);
}

const Canvas& SceneView::at(std::uint32_t frameNumber)
{
    m_canvas = m_background;
    m_scene.paintMotion(m_canvas, frameNumber);
    return m_canvas;
}

void PictureSource::paintAnew(const Geometry& geometry)
{
    // Taken back first: should memory run out below, the next request starts from nothing again.
    m_geometry.reset();
    m_chart.reset();
    m_landscape.reset();
    const std::string caption = "TYPE " + std::to_string(std::max(geometry.sensorType, 0)) + "  " +
                                std::to_string(geometry.width) + "X" +
                                std::to_string(geometry.height);
    int chartWidth = geometry.width;
    int landscapeWidth = geometry.width;
    if (sensorTypeOf(geometry.sensorType).layout == FrameLayout::Single) {
        chartWidth = geometry.width / 2;
        landscapeWidth = geometry.width - chartWidth;
    }
    m_chart.emplace(kChartScene, chartWidth, geometry.height, caption);
    m_landscape.emplace(kLandscapeScene, landscapeWidth, geometry.height, caption);
    m_geometry = geometry;
}

void PictureSource::render(const FrameRequest& request)
{
    const Geometry geometry{request.sensorType, request.width, request.height};
    if (m_geometry != geometry) {
        paintAnew(geometry);
    }
    const Canvas& chart = m_chart->at(request.frameNumber);
    const Canvas& landscape = m_landscape->at(request.frameNumber);
    if (sensorTypeOf(request.sensorType).layout == FrameLayout::Single) {
        develop({&chart, &landscape}, request.height, request.controls, a);
        b.clear();
        return;
    }
    develop({&chart}, request.height, request.controls, a);
    develop({&landscape}, request.height, request.controls, b);
}

} // namespace zrnsim
