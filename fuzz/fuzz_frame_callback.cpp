// Frames of any size and geometry arrive at a camera whose own geometry changes, and are grabbed.

#include "camera_probe.h"
#include "fake_uvc.h"
#include "sensor_types.h"

#include <QtAlgorithms>

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

namespace
{

constexpr int longestSide = 64;

void deliver(FuzzedDataProvider& input, CameraProbe& camera)
{
    // Mostly the right size, for otherwise nothing gets past the first check.
    const bool fits = input.ConsumeIntegralInRange(0, 3) != 0;
    const int width = fits ? camera.m_imageWidth : input.ConsumeIntegral<std::uint16_t>();
    const int height = fits ? camera.m_imageHeight : input.ConsumeIntegral<std::uint16_t>();
    std::vector<std::uint8_t> bytes =
        input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 64));
    if (fits) {
        bytes.resize(
            static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
            static_cast<std::size_t>(CZRNCamera::ChannelFromImgFormat(camera.m_pixelFormat)));
    }
    bytes.shrink_to_fit();

    uvc_frame_t frame = {};
    frame.data = bytes.data();
    frame.data_bytes = bytes.size();
    frame.width = static_cast<std::uint32_t>(width);
    frame.height = static_cast<std::uint32_t>(height);
    CZRNCamera::frameTriggered(&frame, &camera);
}

void grab(CameraProbe& camera)
{
    QList<CameraSpace::ImageBlock*> images;
    const ErrorCode result = camera.grabImage(images);
    if (result != ErrorCode::Success && !images.isEmpty()) {
        std::abort();
    }
    qDeleteAll(images);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    bus.reset();
    bus.addCamera(1, input.ConsumeIntegralInRange(0, sensorTypes.back().number + 1),
                  input.ConsumeIntegralInRange(0, longestSide),
                  input.ConsumeIntegralInRange(0, longestSide));
    CZRNCamera::enumZRNCameraDevices();
    {
        CameraProbe camera;
        camera.connectDeviceByIndex(0);
        camera.m_cacheFrameCount = input.ConsumeIntegralInRange(1, 5);
        camera.startStream(0);
        while (input.remaining_bytes() > 0) {
            switch (input.ConsumeIntegralInRange(0, 7)) {
            case 0:
                camera.m_imageWidth = input.ConsumeIntegralInRange(0, longestSide);
                camera.m_imageHeight = input.ConsumeIntegralInRange(0, longestSide);
                break;
            case 1:
                camera.m_sensorType =
                    input.ConsumeIntegralInRange(-1, sensorTypes.back().number + 2);
                break;
            case 2:
                camera.m_pixelFormat = static_cast<CameraSpace::PixelFormatType>(
                    input.ConsumeIntegral<std::uint8_t>());
                break;
            case 3:
                camera.stopStream(0);
                camera.startStream(0);
                break;
            case 4:
                grab(camera);
                break;
            default:
                deliver(input, camera);
            }
        }
    }
    CZRNCamera::releaseZRNCameraLibrary();
    return 0;
}
