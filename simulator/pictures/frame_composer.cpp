#include "pictures/frame_composer.h"

#include "pictures/canvas.h"
#include "pictures/frame_header.h"
#include "pictures/frame_layout.h"
#include "pictures/scene.h"
#include "pictures/sensor_types.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <list>
#include <string>

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

/// One scene as light falls on a sensor: what does not move is painted once.
class SceneView
{
public:
    SceneView(const Scene& scene, int width, int height, const std::string& caption)
        : m_scene(scene)
        , m_background(width, height)
        , m_canvas(width, height)
    {
        m_scene.paintBackground(m_background, caption);
    }

    Canvas& at(std::uint32_t frameNumber)
    {
        m_canvas.copy(m_background);
        m_scene.paintMotion(m_canvas, frameNumber);
        return m_canvas;
    }

private:
    const Scene& m_scene;
    Canvas m_background;
    Canvas m_canvas;
};

/// Shifts the rows from 2 on as the camera sends them.
void shiftRows(std::uint8_t* image, std::size_t width, std::size_t height, int shift)
{
    constexpr std::size_t firstShifted = 2;
    // The pixels that leave a row at one end come in at the other.
    const std::size_t split =
        shift > 0 ? width - static_cast<std::size_t>(shift) : static_cast<std::size_t>(-shift);
    for (std::size_t y = firstShifted; y < height && shift != 0; ++y) {
        std::uint8_t* row = image + y * width;
        std::rotate(row, row + split, row + width);
    }
}

/// What a frame's picture depends on besides its settings and its number.
struct Geometry {
    int sensorType;
    int width;
    int height;
    int bytesPerPosition;
    bool operator==(const Geometry&) const = default;
};

Geometry geometryOf(const FrameRequest& request)
{
    return {request.sensorType, request.width, request.height, request.bytesPerPosition};
}

} // namespace

/// What the sensors of one camera see.
class FrameComposer::View
{
public:
    explicit View(const Geometry& camera)
        : geometry(camera)
        , m_width(static_cast<std::size_t>(camera.width))
        , m_height(static_cast<std::size_t>(camera.height))
        , m_isSplit(layoutOf(camera) == FrameLayout::Single)
        , m_images(2 * m_width * m_height + 1) // and black, for bytes that carry no pixel
        // One byte for each position leaves room for image A alone.
        , m_pixels(pixelsOf(camera.bytesPerPosition == 1 ? FrameLayout::Single : layoutOf(camera),
                            m_width, m_height))
    {
        const std::string caption = "TYPE " + std::to_string(std::max(camera.sensorType, 0)) +
                                    "  " + std::to_string(camera.width) + "X" +
                                    std::to_string(camera.height);
        const int chartWidth = m_isSplit ? camera.width / 2 : camera.width;
        const int landscapeWidth = m_isSplit ? camera.width - chartWidth : camera.width;
        m_scenes.emplace_back(kChartScene, chartWidth, camera.height, caption);
        m_scenes.emplace_back(kLandscapeScene, landscapeWidth, camera.height, caption);
    }

    /// @param frame filled, bytes behind the pixels with 0
    void take(const FrameRequest& request, std::vector<std::uint8_t>& frame)
    {
        develop(request);
        shiftRows(m_images.data(), m_width, m_height, rowShiftOf(request, 0));
        shiftRows(m_images.data() + m_width * m_height, m_width, m_height, rowShiftOf(request, 1));
        for (std::size_t i = 0; i < m_pixels.size(); ++i) {
            frame[i] = m_images[m_pixels[i]];
        }
        std::fill(frame.begin() + static_cast<std::ptrdiff_t>(m_pixels.size()), frame.end(),
                  std::uint8_t{0});
    }

    const Geometry geometry;

private:
    static FrameLayout layoutOf(const Geometry& camera)
    {
        return sensorTypeOf(camera.sensorType).layout;
    }

    /// Applies exposure and gains. Cameras with one image show both scenes in it, side by side.
    void develop(const FrameRequest& request)
    {
        std::array<std::vector<std::uint16_t>, 2> scales;
        for (std::size_t parity = 0; parity < 2; ++parity) {
            const RowScale scale = scalesOf(request.controls)[parity];
            for (std::size_t x = 0; x < m_width; ++x) {
                scales[parity].push_back(scale[x % 2]);
            }
        }
        std::size_t column = 0;
        std::size_t image = 0;
        for (SceneView& scene : m_scenes) {
            Canvas& light = scene.at(request.frameNumber);
            const auto count = static_cast<std::size_t>(light.width());
            for (std::size_t y = 0; y < m_height; ++y) {
                developRow(light.pixelRow(static_cast<int>(y)), scales[y % 2].data() + column,
                           count, m_images.data() + image + y * m_width + column);
            }
            if (m_isSplit) {
                column += count;
            } else {
                image += m_width * m_height;
            }
        }
    }

    std::size_t m_width;
    std::size_t m_height;
    bool m_isSplit;
    std::list<SceneView> m_scenes;
    std::vector<std::uint8_t> m_images;
    std::vector<std::uint32_t> m_pixels;
};

FrameComposer::FrameComposer() = default;
FrameComposer::~FrameComposer() = default;

void FrameComposer::compose(const FrameRequest& request, std::vector<std::uint8_t>& frame)
{
    if (request.width < 1 || request.height < 1 || request.bytesPerPosition < 1) {
        frame.clear();
        return;
    }
    if (!m_view || m_view->geometry != geometryOf(request)) {
        m_view.reset(); // before the next one takes memory
        m_view = std::make_unique<View>(geometryOf(request));
    }
    frame.resize(static_cast<std::size_t>(request.width) *
                 static_cast<std::size_t>(request.height) *
                 static_cast<std::size_t>(request.bytesPerPosition));
    m_view->take(request, frame);
    for (const HeaderByte& byte : headerOf(request)) {
        if (byte.offset < frame.size()) {
            frame[byte.offset] = byte.value;
        }
    }
}

} // namespace zrnsim
