#include "checks/images.h"
#include "client/property_keys.h"
#include "client/variants.h"
#include "common/statistics.h"
#include "verify/driver_checks.h"

#include <QThread>

namespace keys = zrn::keys;
using CameraSpace::TriggerMode;

namespace
{

constexpr int framesInOrder = 8;
/// Longer than the second that the driver measures its rate over.
constexpr unsigned long rateMeasuringMs = 1300;

void checkFrameNumbers(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    zrn::FrameNumbers numbers;
    zrnhost::StreamAccount frames;
    for (int frame = 1; frame <= framesInOrder; ++frame) {
        ContractSpace::Images images;
        if (account.expectCode(QStringLiteral("grab frame %1").arg(frame),
                               ContractSpace::grab(*camera, images))) {
            frames.addFrame(numbers.follow(ContractSpace::trailerOf(*images.front())), {}, {});
        }
    }
    account.expect(QStringLiteral("frame numbers ascend"),
                   frames.repeated() == 0 && frames.restarts() == 0,
                   QStringLiteral("%1 missing").arg(frames.missing()));
}

void checkWhileStreaming(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    QVariant value;
    account.expectCode(QStringLiteral("refuse the cache size while streaming"),
                       camera.readProperty(keys::cacheFrameCount, value),
                       ErrorCode::PropertyFailed);
    QThread::msleep(rateMeasuringMs);
    account.expectCode(QStringLiteral("read frame rate"),
                       camera.readProperty(keys::frameRate, value));
    account.expect(QStringLiteral("frame rate is measured"), value.toDouble() > 0,
                   QStringLiteral("%1 frames/s").arg(value.toDouble(), 0, 'f', 2));
    account.expectCode(QStringLiteral("read status"), camera.readProperty(keys::heartBeat, value));
    account.expect(QStringLiteral("status is online"),
                   value.toMap().value(QString::fromLatin1(keys::online)).toBool(),
                   QString::fromStdString(zrn::toText(zrn::fromVariant(value))));
}

} // namespace

void checkFrames(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    account.setGroup(QStringLiteral("frames"));
    TriggerMode original{};
    camera->getTriggerMode(original, 0);
    camera->setTriggerMode(TriggerMode::Oldest, 0);
    if (account.expectCode(QStringLiteral("start"), camera->startStream(0))) {
        checkFrameNumbers(camera, account);
        checkWhileStreaming(camera, account);
        account.expectCode(QStringLiteral("stop"), camera->stopStream(0));
    }
    camera->setTriggerMode(original, 0);
}
