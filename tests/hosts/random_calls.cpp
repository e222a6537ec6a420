#include "random_calls.h"

#include "client/property_table.h"

#include <QtAlgorithms>

#include <algorithm>
#include <array>
#include <iterator>

namespace hosts
{
namespace
{

namespace keys = zrn::keys;
using CameraSpace::CameraInterface;

/// Long enough for a frame, and short enough for a test.
constexpr int longestGrabTimeout = 40;

template <typename Integer>
Integer pick(Random& random, Integer lowest, Integer highest)
{
    return static_cast<Integer>(std::uniform_int_distribution<long>(
        static_cast<long>(lowest), static_cast<long>(highest))(random));
}

template <typename Container>
const auto& pickFrom(Random& random, const Container& container)
{
    return container[pick<std::size_t>(random, 0, std::size(container) - 1)];
}

QString randomText(Random& random)
{
    QString text;
    for (int length = pick(random, 0, 12); length > 0; --length) {
        text.append(QChar(pick<ushort>(random, 0, 0xffff)));
    }
    return text;
}

QString randomKey(Random& random)
{
    return pick(random, 0, 9) == 0 ? randomText(random)
                                   : QString::fromLatin1(pickFrom(random, zrn::propertyTable).key);
}

QVariant randomValue(Random& random, const QString& key)
{
    if (key == QLatin1String(keys::maxGrabWaitTime)) {
        return pick(random, 1, longestGrabTimeout);
    }
    switch (pick(random, 0, 6)) {
    case 0:
        return randomText(random);
    case 1:
        return pick(random, 0, 1) == 1;
    case 2:
        return QVariant();
    case 3:
        return 0.5;
    default:
        return pick(random, -2, 24);
    }
}

ErrorCode grab(CameraInterface& camera)
{
    QList<CameraSpace::ImageBlock*> images;
    const ErrorCode result = camera.grabImage(images);
    qDeleteAll(images);
    return result;
}

constexpr std::array calls = {
    RandomCall{"name",
               [](CameraInterface& camera, Random&) {
                   return camera.name().isEmpty() ? ErrorCode::CommandFailed : ErrorCode::Success;
               }},
    RandomCall{"types",
               [](CameraInterface& camera, Random&) {
                   return camera.types() == 1 ? ErrorCode::Success : ErrorCode::CommandFailed;
               }},
    RandomCall{"connectDeviceByIndex",
               [](CameraInterface& camera, Random& random) {
                   return camera.connectDeviceByIndex(pick(random, -1, 3));
               }},
    RandomCall{"connectDeviceBySerial",
               [](CameraInterface& camera, Random& random) {
                   const QString texts[] = {QString(), QStringLiteral("Z"), QStringLiteral("ZR1"),
                                            QStringLiteral("ZR2"), randomText(random)};
                   return camera.connectDeviceBySerial(pickFrom(random, texts));
               }},
    RandomCall{"reconnectDevice",
               [](CameraInterface& camera, Random&) { return camera.reconnectDevice(); }},
    RandomCall{"disconnectDevice",
               [](CameraInterface& camera, Random&) { return camera.disconnectDevice(); }},
    RandomCall{"getProperty",
               [](CameraInterface& camera, Random& random) {
                   QMap<QString, QVariant> values;
                   return camera.getProperty(randomKey(random), values);
               }},
    RandomCall{"setProperty",
               [](CameraInterface& camera, Random& random) {
                   const QString key = randomKey(random);
                   const QString entry =
                       pick(random, 0, 9) == 0 ? randomText(random) : QStringLiteral("value");
                   return camera.setProperty(key, {{entry, randomValue(random, key)}});
               }},
    RandomCall{"executeCommand",
               [](CameraInterface& camera, Random& random) {
                   QMap<QString, QVariant> values;
                   return camera.executeCommand(pick(random, 0, 1) == 0 ? QString(keys::clearState)
                                                                        : randomText(random),
                                                values);
               }},
    RandomCall{"getExposureTimeRange",
               [](CameraInterface& camera, Random&) {
                   unsigned minimum = 0;
                   unsigned maximum = 0;
                   return camera.getExposureTimeRange(minimum, maximum, 0);
               }},
    RandomCall{"setExposureTime",
               [](CameraInterface& camera, Random& random) {
                   return camera.setExposureTime(pick(random, 0U, 100'000U), 0);
               }},
    RandomCall{"getExposureTime",
               [](CameraInterface& camera, Random&) {
                   unsigned value = 0;
                   return camera.getExposureTime(value, 0);
               }},
    RandomCall{"getGainRange",
               [](CameraInterface& camera, Random&) {
                   unsigned short minimum = 0;
                   unsigned short maximum = 0;
                   return camera.getGainRange(minimum, maximum, 0);
               }},
    RandomCall{"setGain",
               [](CameraInterface& camera, Random& random) {
                   return camera.setGain(pick<unsigned short>(random, 0, 300), 0);
               }},
    RandomCall{"getGain",
               [](CameraInterface& camera, Random&) {
                   unsigned short value = 0;
                   return camera.getGain(value, 0);
               }},
    RandomCall{"getMaxImageSize",
               [](CameraInterface& camera, Random&) {
                   unsigned width = 0;
                   unsigned height = 0;
                   return camera.getMaxImageSize(width, height, 0);
               }},
    RandomCall{"setInterestSize",
               [](CameraInterface& camera, Random&) { return camera.setInterestSize(8, 8, 0); }},
    RandomCall{"getInterestSize",
               [](CameraInterface& camera, Random&) {
                   unsigned width = 0;
                   unsigned height = 0;
                   return camera.getInterestSize(width, height, 0);
               }},
    RandomCall{"setAOIOffset",
               [](CameraInterface& camera, Random&) { return camera.setAOIOffset(1, 1, 0); }},
    RandomCall{"getAOIOffset",
               [](CameraInterface& camera, Random&) {
                   unsigned x = 0;
                   unsigned y = 0;
                   return camera.getAOIOffset(x, y, 0);
               }},
    RandomCall{"getPixelFormat",
               [](CameraInterface& camera, Random&) {
                   CameraSpace::PixelFormatType format{};
                   return camera.getPixelFormat(format, 0);
               }},
    RandomCall{"setTriggerMode",
               [](CameraInterface& camera, Random& random) {
                   return camera.setTriggerMode(
                       static_cast<CameraSpace::TriggerMode>(pick(random, 0, 3)), 0);
               }},
    RandomCall{"getTriggerMode",
               [](CameraInterface& camera, Random&) {
                   CameraSpace::TriggerMode mode{};
                   return camera.getTriggerMode(mode, 0);
               }},
    RandomCall{"discardFrames",
               [](CameraInterface& camera, Random&) { return camera.discardFrames(0); }},
    RandomCall{"startStream",
               [](CameraInterface& camera, Random&) { return camera.startStream(0); }},
    RandomCall{"stopStream", [](CameraInterface& camera, Random&) { return camera.stopStream(0); }},
    RandomCall{"grabImage", [](CameraInterface& camera, Random&) { return grab(camera); }},
};

constexpr std::array documented = {
    ErrorCode::Success,
    ErrorCode::NoCamera,
    ErrorCode::SplitException,
    ErrorCode::SerialNotFound,
    ErrorCode::IndexNotFound,
    ErrorCode::NodeNotOpen,
    ErrorCode::AlreadyConnected,
    ErrorCode::NotSupported,
    ErrorCode::NothingEnumerated,
    ErrorCode::NotConnected,
    ErrorCode::PropertyFailed,
    ErrorCode::BadArgument,
    ErrorCode::CommandFailed,
    ErrorCode::NotStreaming,
    ErrorCode::GrabTimeout,
    ErrorCode::SplitFailed,
    ErrorCode::ExposureWriteFailed,
    ErrorCode::ExposureReadFailed,
    ErrorCode::ExposureRangeFailed,
    ErrorCode::GainWriteFailed,
    ErrorCode::GainReadFailed,
    ErrorCode::NoFrameDescriptor,
    ErrorCode::StreamStartFailed,
};

} // namespace

std::span<const RandomCall> randomCalls()
{
    return calls;
}

ErrorCode callAtRandom(CameraInterface& camera, Random& random)
{
    return pickFrom(random, calls).make(camera, random);
}

bool isDocumented(ErrorCode result)
{
    return std::ranges::find(documented, result) != documented.end();
}

} // namespace hosts
