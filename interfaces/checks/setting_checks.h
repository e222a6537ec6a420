#pragma once

#include "../camera_interface.h"
#include "account.h"
#include "device_properties.h"

#include <limits>

namespace ContractSpace
{

/// The coarsest step in which a camera counts exposure, microseconds.
inline constexpr unsigned int coarsestExposureStep = 100;

/// Minimum, quarters and maximum of a range.
template <typename Number>
std::vector<Number> acrossRange(Number minimum, Number maximum)
{
    std::vector<Number> values;
    const auto span = static_cast<quint64>(maximum - minimum);
    for (quint64 quarter = 0; quarter <= 4; ++quarter) {
        values.push_back(static_cast<Number>(minimum + span * quarter / 4));
    }
    return values;
}

inline void checkIdentity(CameraSpace::CameraInterface& camera, Account& account)
{
    account.setGroup(QStringLiteral("identity"));
    account.expect(QStringLiteral("device type"), camera.types() == 1,
                   QStringLiteral("%1, 1 is a camera").arg(camera.types()));
    account.expect(QStringLiteral("driver name"), !camera.name().isEmpty(), camera.name());
    QVariant serial;
    account.expectCode(QStringLiteral("read serial"), readProperty(camera, serialKey, serial));
    account.expect(QStringLiteral("serial is a text"), !serial.toString().isEmpty(),
                   serial.toString());
}

inline void checkExposure(CameraSpace::CameraInterface& camera, Account& account)
{
    account.setGroup(QStringLiteral("exposure"));
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    unsigned int original = 0;
    if (!account.expectCode(QStringLiteral("read range"),
                            camera.getExposureTimeRange(minimum, maximum, 0)) ||
        !account.expectCode(QStringLiteral("read"), camera.getExposureTime(original, 0)) ||
        !account.expect(QStringLiteral("range is ascending"), minimum <= maximum,
                        QStringLiteral("%1 to %2 us").arg(minimum).arg(maximum))) {
        return;
    }
    for (const unsigned int value : acrossRange(minimum, maximum)) {
        const QString name = QStringLiteral("set %1 us").arg(value);
        const ErrorCode result = camera.setExposureTime(value, 0);
        if (value == minimum && result == ErrorCode::ExposureWriteFailed) {
            // Cameras that count in lines report their least step rounded down to microseconds,
            // which is then converted to no step at all.
            account.notSupported(name, result,
                                 QStringLiteral("below the camera's least step when rounded"));
            continue;
        }
        if (!account.expectCode(name, result)) {
            continue;
        }
        unsigned int readBack = 0;
        camera.getExposureTime(readBack, 0);
        const unsigned int difference = value > readBack ? value - readBack : readBack - value;
        account.expect(name + QStringLiteral(", read back"), difference < coarsestExposureStep,
                       QStringLiteral("%1 us").arg(readBack));
    }
    if (minimum > 0) {
        account.expectCode(QStringLiteral("refuse a value below the range"),
                           camera.setExposureTime(minimum - 1, 0), ErrorCode::BadArgument);
    }
    if (maximum < std::numeric_limits<unsigned int>::max()) {
        account.expectCode(QStringLiteral("refuse a value above the range"),
                           camera.setExposureTime(maximum + 1, 0), ErrorCode::BadArgument);
    }
    // A reading in coarse steps may lie just outside the range that it is converted from.
    account.expectCode(QStringLiteral("restore"),
                       camera.setExposureTime(std::min(std::max(original, minimum), maximum), 0));
}

inline void checkGain(CameraSpace::CameraInterface& camera, Account& account)
{
    account.setGroup(QStringLiteral("gain"));
    unsigned short minimum = 0;
    unsigned short maximum = 0;
    unsigned short original = 0;
    if (!account.expectCode(QStringLiteral("read range"),
                            camera.getGainRange(minimum, maximum, 0)) ||
        !account.expectCode(QStringLiteral("read"), camera.getGain(original, 0)) ||
        !account.expect(QStringLiteral("range is ascending"), minimum <= maximum,
                        QStringLiteral("%1 to %2").arg(minimum).arg(maximum))) {
        return;
    }
    for (const unsigned short value : acrossRange(minimum, maximum)) {
        const QString name = QStringLiteral("set %1").arg(value);
        if (!account.expectCode(name, camera.setGain(value, 0))) {
            continue;
        }
        unsigned short readBack = 0;
        camera.getGain(readBack, 0);
        account.expect(name + QStringLiteral(", read back"), readBack == value,
                       QString::number(readBack));
    }
    if (minimum > 0) {
        account.expectCode(QStringLiteral("refuse a value below the range"),
                           camera.setGain(static_cast<unsigned short>(minimum - 1), 0),
                           ErrorCode::BadArgument);
    }
    if (maximum < std::numeric_limits<unsigned short>::max()) {
        account.expectCode(QStringLiteral("refuse a value above the range"),
                           camera.setGain(static_cast<unsigned short>(maximum + 1), 0),
                           ErrorCode::BadArgument);
    }
    account.expectCode(QStringLiteral("restore"), camera.setGain(original, 0));
}

inline void checkGeometry(CameraSpace::CameraInterface& camera, Account& account)
{
    account.setGroup(QStringLiteral("geometry"));
    unsigned int width = 0;
    unsigned int height = 0;
    account.expectCode(QStringLiteral("image size"), camera.getMaxImageSize(width, height, 0));
    account.expect(QStringLiteral("image size is not empty"), width > 0 && height > 0,
                   QStringLiteral("%1 x %2").arg(width).arg(height));
    unsigned int interestWidth = 0;
    unsigned int interestHeight = 0;
    account.expectCode(QStringLiteral("area of interest, size"),
                       camera.getInterestSize(interestWidth, interestHeight, 0));
    account.expect(QStringLiteral("area of interest is within the image"),
                   interestWidth <= width && interestHeight <= height,
                   QStringLiteral("%1 x %2").arg(interestWidth).arg(interestHeight));
    account.expectSupport(QStringLiteral("set area of interest, size"),
                          camera.setInterestSize(width, height, 0), ErrorCode::NotSupported);
    account.expectSupport(QStringLiteral("set area of interest, offset"),
                          camera.setAOIOffset(0, 0, 0), ErrorCode::NotSupported);
    unsigned int x = 0;
    unsigned int y = 0;
    account.expectSupport(QStringLiteral("area of interest, offset"), camera.getAOIOffset(x, y, 0),
                          ErrorCode::NotSupported);
    CameraSpace::PixelFormatType format{};
    account.expectCode(QStringLiteral("pixel format"), camera.getPixelFormat(format, 0));
    const quint32 bits = static_cast<quint32>(format) & 0xff;
    account.expect(QStringLiteral("pixel format has 8 or 16 bits"), bits == 8 || bits == 16,
                   QString::number(static_cast<quint32>(format)));
}

/// What every driver refuses, whatever properties and commands it has.
inline void checkUnknownKeys(CameraSpace::CameraInterface& camera, Account& account)
{
    account.setGroup(QStringLiteral("unknown keys"));
    QMap<QString, QVariant> values{{unknownKey, 1}};
    const auto untouched = values;
    account.expectCode(QStringLiteral("refuse to read an unknown key"),
                       camera.getProperty(unknownKey, values), ErrorCode::NotSupported);
    account.expect(QStringLiteral("a refused reading leaves the map alone"), values == untouched);
    account.expectCode(QStringLiteral("refuse to write an unknown key"),
                       writeProperty(camera, unknownKey, 1), ErrorCode::NotSupported);
    account.expectCode(QStringLiteral("refuse a write without a value"),
                       camera.setProperty(grabTimeoutKey, {}), ErrorCode::BadArgument);
    account.expectCode(QStringLiteral("refuse an unknown command"),
                       camera.executeCommand(unknownKey, values), ErrorCode::NotSupported);
}

} // namespace ContractSpace
