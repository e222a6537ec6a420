#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace zrnsim
{

/// The settings of the camera that show in its pictures.
struct PictureControls {
    /// Exposure time as a fraction of the camera's range, 0 to 1 (values outside are clamped).
    /// Brightness is proportional to it; 0.5 is the nominal exposure, 0 leaves the black level.
    double exposureFraction = 0.5;
    /// Gain as a fraction of the camera's range, 0 to 1 (values outside are clamped).
    /// 0.5 is unity; the ends of the range halve and double the brightness.
    double gainFraction = 0.5;
    /// Gains of the four cells of the 2x2 colour mosaic, R, GR (first row), GB, B (second row);
    /// 128 is unity.
    std::array<std::uint8_t, 4> colorGain = {128, 128, 128, 128};

    bool operator==(const PictureControls&) const = default;
};

/// One frame of a camera: everything that its bytes depend on.
struct FrameRequest {
    /// A row of sensorTypes. Numbers that hosts do not know are plain interleave here; as hosts
    /// take their cameras for ones of type 0, a camera model asks for type 0 in their stead.
    int sensorType = 0;
    int width = 0;  ///< pixels; a frame without pixels (width or height below 1) has no bytes
    int height = 0; ///< pixels
    /// 2 for two interleaved images, 1 for one image (sensor type 5).
    int bytesPerPosition = 2;
    /// Counts the frames; drawn in the picture and sent little-endian in frame bytes 2 to 5.
    std::uint32_t frameNumber = 0;
    PictureControls controls;
};

/// Paints the two scenes and packs them into frames.
///
/// Keeps the motionless parts of the scenes between frames of one size, so each camera keeps a
/// composer of its own.
///
/// Thread safety: reentrant.
class FrameComposer
{
public:
    FrameComposer();
    ~FrameComposer();

    /// Fills `frame` with width * height * bytesPerPosition bytes; the same request always gives
    /// the same bytes.
    /// @throws std::bad_alloc, std::length_error when there is no memory for them
    void compose(const FrameRequest& request, std::vector<std::uint8_t>& frame);

private:
    class View;

    std::unique_ptr<View> m_view; ///< of the last request
};

} // namespace zrnsim
