#pragma once

#include "account.h"
#include "device_properties.h"
#include "images.h"

#include <QThread>

#include <algorithm>

namespace ContractSpace
{

/// Milliseconds after which a frame is cached for certain.
inline constexpr unsigned long fillingMs = 300;

inline void checkTriggerMode(CameraSpace::CameraInterface& camera, Account& account,
                             CameraSpace::TriggerMode mode, const QString& name)
{
    CameraSpace::TriggerMode stored{};
    const ErrorCode result = camera.setTriggerMode(mode, 0);
    camera.getTriggerMode(stored, 0);
    account.expectSupport(QStringLiteral("set order %1").arg(name), result,
                          ErrorCode::NotSupported);
    account.expect(QStringLiteral("order %1 is stored").arg(name), stored == mode,
                   QString::number(static_cast<quint32>(stored)));
}

/// Grabs once and judges the images. @return what was grabbed, empty if it is not as it should be.
inline Images checkGrab(CameraSpace::CameraInterface& camera, Account& account, const QString& name)
{
    Images images;
    if (!account.expectCode(name, grab(camera, images))) {
        return {};
    }
    const bool wellFormed = !images.empty() && images.size() <= 2 &&
                            std::all_of(images.begin(), images.end(),
                                        [](const auto& image) { return isWellFormed(*image); });
    account.expect(name + QStringLiteral(", images"), wellFormed,
                   QStringLiteral("%1 images").arg(images.size()));
    return wellFormed ? std::move(images) : Images();
}

/// A grab in newest-frame order drops all that was cached, so that one that hardly waits soon finds
/// nothing.
inline void checkTimeout(CameraSpace::CameraInterface& camera, Account& account)
{
    constexpr int attempts = 50;
    {
        const GrabTimeout hardlyAny(camera, 1);
        if (!hardlyAny.isSet()) {
            return;
        }
        ErrorCode result = ErrorCode::Success;
        for (int attempt = 0; attempt < attempts && result == ErrorCode::Success; ++attempt) {
            Images images;
            result = grab(camera, images);
        }
        account.expectCode(QStringLiteral("time-out"), result, ErrorCode::GrabTimeout);
    }
    checkGrab(camera, account, QStringLiteral("grab after the time-out"));
}

inline void checkNotStreaming(CameraSpace::CameraInterface& camera, Account& account,
                              const QString& when)
{
    Images images;
    account.expectCode(QStringLiteral("refuse a grab %1").arg(when), grab(camera, images),
                       ErrorCode::NotStreaming);
    account.expectCode(QStringLiteral("refuse a stop %1").arg(when), camera.stopStream(0),
                       ErrorCode::NotStreaming);
}

inline void checkStream(CameraSpace::CameraInterface& camera, Account& account)
{
    constexpr int restarts = 3;
    account.setGroup(QStringLiteral("stream"));
    CameraSpace::TriggerMode original{};
    camera.getTriggerMode(original, 0);

    checkNotStreaming(camera, account, QStringLiteral("before the start"));
    if (!account.expectCode(QStringLiteral("start"), camera.startStream(0))) {
        return;
    }
    account.expectCode(QStringLiteral("start again"), camera.startStream(0));
    checkTriggerMode(camera, account, CameraSpace::TriggerMode::Oldest, QStringLiteral("oldest"));
    checkGrab(camera, account, QStringLiteral("grab oldest"));
    checkTriggerMode(camera, account, CameraSpace::TriggerMode::Newest, QStringLiteral("newest"));
    QThread::msleep(fillingMs);
    checkGrab(camera, account, QStringLiteral("grab newest"));
    checkTimeout(camera, account);
    account.expectCode(QStringLiteral("discard frames"), camera.discardFrames(0));
    account.expectCode(QStringLiteral("stop"), camera.stopStream(0));
    checkNotStreaming(camera, account, QStringLiteral("after the stop"));
    for (int round = 1; round <= restarts; ++round) {
        account.expectCode(QStringLiteral("start, round %1").arg(round), camera.startStream(0));
        checkGrab(camera, account, QStringLiteral("grab, round %1").arg(round));
        account.expectCode(QStringLiteral("stop, round %1").arg(round), camera.stopStream(0));
    }
    camera.setTriggerMode(original, 0);
}

} // namespace ContractSpace
