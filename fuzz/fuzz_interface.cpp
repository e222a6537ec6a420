// A host that calls everything in any order on two factories, while libuvc calls fail and cameras
// come, go and send frames.

#include "client/property_table.h"
#include "fake_uvc.h"
#include "zrn_camera_factory.h"

#include <QtAlgorithms>

#include <array>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <memory>
#include <vector>

namespace
{

// The corpus chooses by position: what is new stands at the ends, of these lists and of the cases
// below.
constexpr std::array libraryCalls = {
    "uvc_init",
    "uvc_get_device_list",
    "uvc_get_device_descriptor",
    "uvc_open",
    "uvc_get_format_descs",
    "uvc_get_stream_ctrl_format_size",
    "uvc_start_streaming",
    "uvc_get_backlight_compensation",
    "uvc_get_brightness",
    "uvc_set_brightness",
    "uvc_get_contrast",
    "uvc_set_contrast",
    "uvc_get_gain",
    "uvc_set_gain",
    "uvc_get_gamma",
    "uvc_set_gamma",
    "uvc_get_sharpness",
    "uvc_set_hue",
    "uvc_set_ae_mode",
    "uvc_get_hue",
    "uvc_get_saturation",
    "uvc_set_saturation",
    "uvc_set_sharpness",
};

constexpr std::array keys = [] {
    using namespace zrn::keys;
    return std::array{capturePeriod,
                      resolutionList,
                      bGain,
                      enableCheckGain,
                      frameRate,
                      serial,
                      cacheFrameCount,
                      resolutionIndex,
                      sharp,
                      heartBeat,
                      sensorCount,
                      gamma,
                      hue,
                      rGain,
                      grGain,
                      gbGain,
                      enableCheckExposureTime,
                      maxGrabWaitTime,
                      clearState};
}();
static_assert(keys.size() == zrn::propertyTable.size() + 1);

template <typename Container>
auto& consumeElement(FuzzedDataProvider& input, Container& container)
{
    return container[input.ConsumeIntegralInRange<std::size_t>(0, std::size(container) - 1)];
}

/// One factory and the cameras that the host has from it.
struct Host {
    std::unique_ptr<CZRNCameraFactory> factory = std::make_unique<CZRNCameraFactory>();
    std::vector<DeviceInterface*> devices;
};

void disturbBus(FuzzedDataProvider& input, fakeuvc::Bus& bus,
                std::vector<fakeuvc::Camera*>& cameras)
{
    switch (input.ConsumeIntegralInRange(0, 4)) {
    case 0:
        bus.fail({consumeElement(input, libraryCalls), UVC_ERROR_IO,
                  input.ConsumeIntegralInRange(0, 3)});
        break;
    case 1:
        bus.clearFailures();
        break;
    case 2:
        if (cameras.size() < 4) {
            cameras.push_back(&bus.addCamera(input.ConsumeIntegralInRange<std::uint64_t>(0, 3),
                                             input.ConsumeIntegralInRange(0, 16),
                                             input.ConsumeIntegralInRange(0, 40),
                                             input.ConsumeIntegralInRange(0, 40)));
        }
        break;
    case 3:
        bus.unplugAll();
        cameras.clear();
        break;
    default:
        if (!cameras.empty()) {
            const int width = input.ConsumeIntegralInRange(0, 40);
            const int height = input.ConsumeIntegralInRange(0, 40);
            std::vector<unsigned char> frame(static_cast<std::size_t>(2 * width * height));
            bus.deliver(*consumeElement(input, cameras), width, height, frame);
        }
    }
}

/// A small number, or a flag.
QVariant consumeValue(FuzzedDataProvider& input)
{
    constexpr int largestNumber = 6;
    const int choice = input.ConsumeIntegralInRange(-1, largestNumber + 2);
    return choice <= largestNumber ? QVariant(choice) : QVariant(choice == largestNumber + 1);
}

void callCamera(FuzzedDataProvider& input, DeviceInterface& device)
{
    auto& camera = dynamic_cast<CameraInterface&>(device);
    QMap<QString, QVariant> values = {{QStringLiteral("value"), consumeValue(input)}};
    unsigned int first = 0;
    unsigned int second = 0;
    unsigned short narrow = 0;
    unsigned short otherNarrow = 0;
    CameraSpace::PixelFormatType format{};
    CameraSpace::TriggerMode mode{};
    switch (input.ConsumeIntegralInRange(0, 27)) {
    case 0:
        device.connectDeviceByIndex(input.ConsumeIntegralInRange(-1, 4));
        break;
    case 1:
        device.connectDeviceBySerial(QString::fromStdString(input.ConsumeRandomLengthString(4)));
        break;
    case 2:
        device.reconnectDevice();
        break;
    case 3:
        device.disconnectDevice();
        break;
    case 4:
        device.getProperty(QString::fromLatin1(consumeElement(input, keys)), values);
        break;
    case 5:
        device.setProperty(QString::fromLatin1(consumeElement(input, keys)), values);
        break;
    case 6:
        device.executeCommand(QString(zrn::keys::clearState), values);
        break;
    case 7:
        camera.getExposureTimeRange(first, second, 0);
        break;
    case 8:
        camera.setExposureTime(input.ConsumeIntegral<unsigned>(), 0);
        break;
    case 9:
        camera.getExposureTime(first, 0);
        break;
    case 10:
        camera.setGain(input.ConsumeIntegral<unsigned short>(), 0);
        break;
    case 11:
        camera.getGain(narrow, 0);
        break;
    case 12:
        camera.setTriggerMode(
            static_cast<CameraSpace::TriggerMode>(input.ConsumeIntegralInRange(0, 3)), 0);
        break;
    case 13:
        camera.startStream(0);
        break;
    case 14:
        camera.stopStream(0);
        break;
    case 15:
        camera.discardFrames(0);
        break;
    case 16: {
        QList<CameraSpace::ImageBlock*> images;
        camera.grabImage(images);
        qDeleteAll(images);
        break;
    }
    case 17:
        camera.getGainRange(narrow, otherNarrow, 0);
        break;
    case 18:
        camera.getMaxImageSize(first, second, 0);
        break;
    case 19:
        first = input.ConsumeIntegral<unsigned>();
        camera.setInterestSize(first, input.ConsumeIntegral<unsigned>(), 0);
        break;
    case 20:
        camera.getInterestSize(first, second, 0);
        break;
    case 21:
        first = input.ConsumeIntegral<unsigned>();
        camera.setAOIOffset(first, input.ConsumeIntegral<unsigned>(), 0);
        break;
    case 22:
        camera.getAOIOffset(first, second, 0);
        break;
    case 23:
        camera.getPixelFormat(format, 0);
        break;
    case 24:
        camera.getTriggerMode(mode, 0);
        break;
    case 25:
        device.name();
        break;
    case 26:
        device.types();
        break;
    default:
        device.executeCommand(QString::fromStdString(input.ConsumeRandomLengthString(12)), values);
    }
}

void callFactory(FuzzedDataProvider& input, Host& host, DeviceInterface* foreign)
{
    switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0:
        host.factory->enumDevice();
        break;
    case 1:
        host.devices.push_back(host.factory->createDevice());
        break;
    case 2:
        if (!host.devices.empty()) {
            DeviceInterface* device = host.devices.back();
            host.devices.pop_back();
            if (host.factory->deleteDevice(device) != ErrorCode::Success || device) {
                std::abort();
            }
        }
        break;
    case 3:
        if (host.factory->deleteDevice(foreign) == ErrorCode::Success) {
            std::abort();
        }
        break;
    case 4:
        host = Host();
        break;
    default:
        host.factory->name();
        host.factory->version();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    bus.reset();
    std::vector<fakeuvc::Camera*> cameras = {&bus.addCamera(1), &bus.addCamera(2, 0, 16, 8)};
    {
        std::array<Host, 2> hosts;
        while (input.remaining_bytes() > 0) {
            const bool second = input.ConsumeBool();
            Host& host = hosts[second ? 1 : 0];
            Host& other = hosts[second ? 0 : 1];
            switch (input.ConsumeIntegralInRange(0, 3)) {
            case 0:
                disturbBus(input, bus, cameras);
                break;
            case 1:
                callFactory(input, host, other.devices.empty() ? nullptr : other.devices.front());
                break;
            default:
                if (!host.devices.empty()) {
                    callCamera(input, *consumeElement(input, host.devices));
                }
            }
        }
    }
    if (!bus.misuses().empty()) {
        std::abort();
    }
    return 0;
}
