#include "commands/capture.h"

#include "common/driver_error.h"
#include "common/property_keys.h"

#include <limits>

using zrnhost::check;

void addCaptureOptions(CLI::App& command, CaptureOptions& options)
{
    addArgument(command, "--exposure", options.exposure,
                "Set the exposure time first, microseconds", {.valueName = "US"});
    addArgument(command, "--gain", options.gain, "Set the gain first", {.valueName = "GAIN"});
    addArgument(command, "--wait", options.waitMilliseconds,
                "Longest wait for one frame, milliseconds (the driver's default is 1000)",
                {.valueName = "MS", .range = std::pair(1, std::numeric_limits<int>::max())});
    addFlag(command, "--newest", options.newest,
            "Take the newest frame and drop older ones, instead of the oldest first");
}

void applyCaptureOptions(zrnhost::Camera& camera, const CaptureOptions& options)
{
    if (options.exposure) {
        check(camera->setExposureTime(*options.exposure, 0),
              QStringLiteral("setting the exposure time to %1").arg(*options.exposure));
    }
    if (options.gain) {
        check(camera->setGain(*options.gain, 0),
              QStringLiteral("setting the gain to %1").arg(*options.gain));
    }
    if (options.waitMilliseconds) {
        check(camera.writeProperty(zrnhost::keys::maxGrabWaitTime, *options.waitMilliseconds),
              QStringLiteral("setting the longest wait to %1").arg(*options.waitMilliseconds));
    }
    // The answer is NotSupported although the driver keeps and obeys the mode.
    camera->setTriggerMode(
        options.newest ? CameraSpace::TriggerMode::Newest : CameraSpace::TriggerMode::Oldest, 0);
}

CameraIdentity identify(zrnhost::Camera& camera)
{
    CameraIdentity identity;
    identity.serial = camera.property(zrnhost::keys::serial).toString();
    // A driver without this property leaves the default, two images in a frame.
    QVariant sensorCount = identity.sensorCount;
    camera.readProperty(zrnhost::keys::sensorCount, sensorCount);
    identity.sensorCount = sensorCount.toInt();
    check(camera->getMaxImageSize(identity.width, identity.height, 0),
          QStringLiteral("reading the image size"));
    return identity;
}

QString CameraIdentity::text() const
{
    return QStringLiteral("%1, %2 x %3").arg(serial).arg(width).arg(height);
}

QJsonObject CameraIdentity::json() const
{
    return {{QStringLiteral("serial"), serial},
            {QStringLiteral("serialNumber"), zrnhost::serialNumberOf(serial)},
            {QStringLiteral("sensorCount"), sensorCount},
            {QStringLiteral("width"), static_cast<qint64>(width)},
            {QStringLiteral("height"), static_cast<qint64>(height)}};
}
