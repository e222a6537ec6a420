// Any configuration descriptor, then four bytes that seed control answers: through the guards, the
// real libuvc and the driver, as far as a stream gets that no transfer is taken for.

#include "camera_probe.h"
#include "client/property_keys.h"
#include "guard_status.h"
#include "one_device_bus.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::uint32_t seed = 0;
    if (size < sizeof(seed)) {
        return 0;
    }
    std::memcpy(&seed, data + size - sizeof(seed), sizeof(seed));
    fuzz::OneDeviceBus::instance().plug({data, size - sizeof(seed)}, seed);

    CZRNCamera::enumZRNCameraDevices();
    if (guardStatus().text != "in effect") {
        std::abort();
    }
    {
        constexpr std::int64_t largestFrame = 1 << 20;
        CameraProbe camera;
        camera.connectDeviceByIndex(0);
        QMap<QString, QVariant> values;
        camera.getProperty(zrn::keys::resolutionList, values);
        camera.getProperty(zrn::keys::resolutionIndex, values);
        camera.m_cacheFrameCount = 1;
        if (std::int64_t{camera.m_imageWidth} * camera.m_imageHeight <= largestFrame) {
            camera.startStream(0);
        }
    }
    CZRNCamera::releaseZRNCameraLibrary();
    return 0;
}
