#include "common/image_blocks.h"
#include "common/property_keys.h"
#include "common/statistics.h"
#include "verify/compliance.h"

#include <QThread>

#include <algorithm>

namespace keys = zrnhost::keys;
using CameraSpace::TriggerMode;
using zrnhost::ImageBlocks;

namespace
{

constexpr int framesInOrder = 8;
constexpr int restarts = 3;
constexpr int drainAttempts = 50;
/// Longer than the second that the driver measures its rate over.
constexpr unsigned long rateMeasuringMs = 1300;
constexpr unsigned long fillingMs = 300;

void checkTriggerMode(zrnhost::Camera& camera, Compliance& compliance, TriggerMode mode,
                      const QString& name)
{
    TriggerMode stored{};
    const ErrorCode result = camera->setTriggerMode(mode, 0);
    camera->getTriggerMode(stored, 0);
    compliance.expectSupport(QStringLiteral("set order %1").arg(name), result,
                             ErrorCode::NotSupported);
    compliance.expect(QStringLiteral("order %1 is stored").arg(name), stored == mode,
                      QString::number(static_cast<quint32>(stored)));
}

/// Grabs once and judges the images. @return the trailer, if there is one.
std::optional<quint64> checkGrab(zrnhost::Camera& camera, Compliance& compliance,
                                 const QString& name)
{
    ImageBlocks images;
    if (!compliance.expectCode(name, zrnhost::grab(*camera, images))) {
        return std::nullopt;
    }
    const bool wellFormed = !images.empty() && images.size() <= 2 &&
                            std::all_of(images.begin(), images.end(), [](const auto& image) {
                                return zrnhost::isWellFormed(*image);
                            });
    if (!compliance.expect(name + QStringLiteral(", images"), wellFormed,
                           QStringLiteral("%1 images").arg(images.size()))) {
        return std::nullopt;
    }
    return zrnhost::trailerOf(*images.front());
}

void checkOldestOrder(zrnhost::Camera& camera, Compliance& compliance)
{
    checkTriggerMode(camera, compliance, TriggerMode::Oldest, QStringLiteral("oldest"));
    zrnhost::StreamAccount account;
    for (int frame = 1; frame <= framesInOrder; ++frame) {
        const auto trailer =
            checkGrab(camera, compliance, QStringLiteral("grab oldest, %1").arg(frame));
        if (trailer) {
            account.addFrame(*trailer, {}, {});
        }
    }
    compliance.expect(QStringLiteral("frame numbers ascend"),
                      account.repeated() == 0 && account.restarts() == 0,
                      QStringLiteral("%1 missing").arg(account.missing()));
}

void checkNewestOrder(zrnhost::Camera& camera, Compliance& compliance)
{
    checkTriggerMode(camera, compliance, TriggerMode::Newest, QStringLiteral("newest"));
    QThread::msleep(fillingMs);
    checkGrab(camera, compliance, QStringLiteral("grab newest"));

    // The grab has dropped all that was cached, so one that hardly waits finds nothing soon.
    QVariant wait;
    camera.readProperty(keys::maxGrabWaitTime, wait);
    camera.writeProperty(keys::maxGrabWaitTime, 1);
    ErrorCode result = ErrorCode::Success;
    for (int attempt = 0; attempt < drainAttempts && result == ErrorCode::Success; ++attempt) {
        ImageBlocks images;
        result = zrnhost::grab(*camera, images);
    }
    compliance.expectCode(QStringLiteral("time-out"), result, ErrorCode::GrabTimeout);
    camera.writeProperty(keys::maxGrabWaitTime, wait);
    checkGrab(camera, compliance, QStringLiteral("grab after the time-out"));
}

void checkWhileStreaming(zrnhost::Camera& camera, Compliance& compliance)
{
    QVariant value;
    compliance.expectCode(QStringLiteral("refuse the cache size while streaming"),
                          camera.readProperty(keys::cacheFrameCount, value),
                          ErrorCode::PropertyFailed);
    QThread::msleep(rateMeasuringMs);
    compliance.expectCode(QStringLiteral("read frame rate"),
                          camera.readProperty(keys::frameRate, value));
    compliance.expect(QStringLiteral("frame rate is measured"), value.toDouble() > 0,
                      QStringLiteral("%1 frames/s").arg(value.toDouble(), 0, 'f', 2));
    compliance.expectCode(QStringLiteral("read status"),
                          camera.readProperty(keys::heartBeat, value));
    compliance.expect(QStringLiteral("status is online"),
                      value.toMap().value(QString::fromLatin1(keys::online)).toBool(),
                      zrnhost::toText(value));
    compliance.expectCode(QStringLiteral("discard frames"), camera->discardFrames(0));
}

} // namespace

void checkStream(zrnhost::Camera& camera, Compliance& compliance)
{
    compliance.setGroup(QStringLiteral("stream"));
    TriggerMode original{};
    camera->getTriggerMode(original, 0);
    ImageBlocks images;
    compliance.expectCode(QStringLiteral("refuse a grab before the start"),
                          zrnhost::grab(*camera, images), ErrorCode::NotStreaming);
    compliance.expectCode(QStringLiteral("refuse a stop before the start"), camera->stopStream(0),
                          ErrorCode::NotStreaming);
    if (!compliance.expectCode(QStringLiteral("start"), camera->startStream(0))) {
        return;
    }
    compliance.expectCode(QStringLiteral("start again"), camera->startStream(0));
    checkOldestOrder(camera, compliance);
    checkNewestOrder(camera, compliance);
    checkWhileStreaming(camera, compliance);
    compliance.expectCode(QStringLiteral("stop"), camera->stopStream(0));
    compliance.expectCode(QStringLiteral("refuse a second stop"), camera->stopStream(0),
                          ErrorCode::NotStreaming);
    compliance.expectCode(QStringLiteral("refuse a grab after the stop"),
                          zrnhost::grab(*camera, images), ErrorCode::NotStreaming);
    for (int round = 1; round <= restarts; ++round) {
        compliance.expectCode(QStringLiteral("start, round %1").arg(round), camera->startStream(0));
        checkGrab(camera, compliance, QStringLiteral("grab, round %1").arg(round));
        compliance.expectCode(QStringLiteral("stop, round %1").arg(round), camera->stopStream(0));
    }
    camera->setTriggerMode(original, 0);
}
