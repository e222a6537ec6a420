// Any key with any variant: a failure leaves the caller's map alone, and only known keys are
// answered.

#include "camera_probe.h"
#include "client/property_table.h"
#include "fake_uvc.h"
#include "key_hash.h"

#include <QDate>
#include <QVariant>

#include <array>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>

namespace
{

// The corpus chooses by position.
constexpr std::array knownKeys = [] {
    using namespace zrn::keys;
    return std::array{capturePeriod,   resolutionList,  bGain,
                      enableCheckGain, frameRate,       enableCheckExposureTime,
                      serial,          cacheFrameCount, sharp,
                      resolutionIndex, maxGrabWaitTime, heartBeat,
                      sensorCount,     gbGain,          rGain,
                      grGain,          gamma,           hue,
                      clearState};
}();
static_assert(knownKeys.size() == zrn::propertyTable.size() + 1);

QString consumeKey(FuzzedDataProvider& input)
{
    if (input.ConsumeBool()) {
        return QString::fromLatin1(
            knownKeys[input.ConsumeIntegralInRange<std::size_t>(0, knownKeys.size() - 1)]);
    }
    const std::string bytes = input.ConsumeRandomLengthString(64);
    return QString::fromUtf8(bytes.data(), static_cast<int>(bytes.size()));
}

QVariant consumeValue(FuzzedDataProvider& input)
{
    switch (input.ConsumeIntegralInRange(0, 8)) {
    case 0:
        return input.ConsumeIntegral<int>();
    case 1:
        return input.ConsumeIntegral<unsigned>();
    case 2:
        return input.ConsumeBool();
    case 3:
        return input.ConsumeIntegral<qlonglong>();
    case 4:
        return input.ConsumeFloatingPoint<double>();
    case 5:
        return QString::fromStdString(input.ConsumeRandomLengthString(16));
    case 6:
        return QVariantMap{{QStringLiteral("value"), 1}};
    case 7:
        return QDate(2000, 1, 1);
    default:
        return {};
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    bus.reset();
    bus.addCamera(1, 2, 8, 4);
    CZRNCamera::enumZRNCameraDevices();
    {
        CameraProbe camera;
        camera.connectDeviceByIndex(0);
        while (input.remaining_bytes() > 0) {
            const QString key = consumeKey(input);
            const QMap<QString, QVariant> before = {{QStringLiteral("other"), 1}};
            QMap<QString, QVariant> values = before;
            if (camera.getProperty(key, values) != ErrorCode::Success && values != before) {
                std::abort();
            }
            values = {{QStringLiteral("value"), consumeValue(input)}};
            camera.setProperty(key, values);
            camera.executeCommand(key, values);
            if (!camera.m_isStreaming && camera.m_cacheFrameCount < 1) {
                std::abort();
            }
        }
    }
    CZRNCamera::releaseZRNCameraLibrary();
    return 0;
}
