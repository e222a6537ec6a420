#include "camera_task.h"
#include "commands/capture.h"
#include "common/driver_error.h"
#include "common/result_codes.h"

namespace
{

/// Adds one fact, or the reason why it cannot be had: a camera that fails one request still tells
/// the rest.
void addFact(Report& report, const char* key, const QString& label, ErrorCode result,
             const QString& text, const QJsonValue& value)
{
    if (result == ErrorCode::Success) {
        report.line(label, text);
        report.json()[QLatin1String(key)] = value;
        return;
    }
    report.line(label, zrnhost::describeResult(result));
    report.json()[QLatin1String(key)] =
        QJsonObject{{QStringLiteral("code"), static_cast<int>(result)},
                    {QStringLiteral("error"), zrnhost::describeResult(result)}};
}

template <typename Number>
void addRange(Report& report, const char* key, const QString& label, ErrorCode result,
              Number minimum, Number maximum, const QString& unit)
{
    addFact(report, key, label, result,
            QStringLiteral("%1 to %2%3").arg(minimum).arg(maximum).arg(unit),
            QJsonObject{{QStringLiteral("minimum"), static_cast<qint64>(minimum)},
                        {QStringLiteral("maximum"), static_cast<qint64>(maximum)}});
}

ExitCode runInfo(Session& session, zrnhost::Camera& camera, Context& context)
{
    Report& report = context.report;
    const QString microseconds = QStringLiteral(" us");

    const QJsonObject driver = session.driverJson();
    report.line(QStringLiteral("driver"), QStringLiteral("%1 %2, %3")
                                              .arg(driver[QLatin1String("name")].toString(),
                                                   driver[QLatin1String("version")].toString(),
                                                   driver[QLatin1String("path")].toString()));
    report.json()[QLatin1String("driver")] = driver;

    const CameraIdentity identity = identify(camera);
    report.line(QStringLiteral("serial"), identity.serial);
    report.line(QStringLiteral("image size"),
                QStringLiteral("%1 x %2").arg(identity.width).arg(identity.height));
    report.line(QStringLiteral("sensors"), QString::number(identity.sensorCount));
    report.json()[QLatin1String("camera")] = identity.json();

    CameraSpace::PixelFormatType format{};
    const ErrorCode formatResult = camera->getPixelFormat(format, 0);
    const auto formatCode = static_cast<quint32>(format);
    addFact(report, "pixelFormat", QStringLiteral("pixel format"), formatResult,
            QStringLiteral("%1, %2 bits for each position").arg(formatCode).arg(formatCode & 0xff),
            static_cast<qint64>(formatCode));

    unsigned int exposure = 0;
    const ErrorCode exposureResult = camera->getExposureTime(exposure, 0);
    addFact(report, "exposure", QStringLiteral("exposure"), exposureResult,
            QString::number(exposure) + microseconds, static_cast<qint64>(exposure));
    unsigned int shortest = 0;
    unsigned int longest = 0;
    const ErrorCode exposureRange = camera->getExposureTimeRange(shortest, longest, 0);
    addRange(report, "exposureRange", QString(), exposureRange, shortest, longest, microseconds);

    unsigned short gain = 0;
    const ErrorCode gainResult = camera->getGain(gain, 0);
    addFact(report, "gain", QStringLiteral("gain"), gainResult, QString::number(gain), gain);
    unsigned short lowest = 0;
    unsigned short highest = 0;
    const ErrorCode gainRange = camera->getGainRange(lowest, highest, 0);
    addRange(report, "gainRange", QString(), gainRange, lowest, highest, QString());
    return ExitCode::Success;
}

} // namespace

Command addInfo(CLI::App& app)
{
    return {&addSubcommand(app, "info", "Show what a camera is and how it is set"),
            [](Context& context) {
                return runOnCameras(context,
                                    {runInfo, true, {}, [](const auto& cameras) {
                                         return QStringLiteral("%1 cameras").arg(cameras.size());
                                     }});
            },
            true};
}
