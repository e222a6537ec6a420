#include "camera_task.h"
#include "client/findings.h"
#include "client/result_codes.h"
#include "commands/capture.h"

namespace
{

/// Adds one fact, or the reason why it cannot be had: a camera that fails one request still tells
/// the rest. @param read answers text and document
template <typename Read>
void addFact(Report& report, const char* key, const QString& label, const Read& read)
{
    try {
        const std::pair<QString, QJsonValue> fact = read();
        report.line(label, fact.first);
        report.json()[QLatin1String(key)] = fact.second;
    } catch (const zrn::Error& error) {
        const QString why = QString::fromStdString(zrn::describeResult(error.code()));
        report.line(label, why);
        report.json()[QLatin1String(key)] =
            QJsonObject{{QStringLiteral("code"), static_cast<int>(error.code())},
                        {QStringLiteral("error"), why}};
    }
}

std::pair<QString, QJsonValue> rangeFact(qint64 minimum, qint64 maximum, const QString& unit)
{
    return {
        QStringLiteral("%1 to %2%3").arg(minimum).arg(maximum).arg(unit),
        QJsonObject{{QStringLiteral("minimum"), minimum}, {QStringLiteral("maximum"), maximum}}};
}

/// How the camera is connected, and whether that is fast enough.
void addConnection(Report& report, const zrn::Camera& camera)
{
    for (const zrn::BusCamera& onBus : camera.driver().bus().cameras()) {
        if (onBus.port != camera.port() || onBus.speed().empty()) {
            continue;
        }
        report.line(QStringLiteral("USB"),
                    QString::fromStdString(onBus.speed() + " at port " + onBus.port));
        QJsonObject json{{QStringLiteral("port"), QString::fromStdString(onBus.port)},
                         {QStringLiteral("megabits"), onBus.megabits}};
        const zrn::Finding speed = zrn::judgeSpeed(onBus);
        if (speed.verdict == zrn::Verdict::Warning) {
            const QString warning = QString::fromStdString(speed.message);
            report.line(QString(), warning);
            report.line(QString(), QString::fromStdString(speed.remedy));
            json[QLatin1String("warning")] = warning;
        }
        report.json()[QLatin1String("usb")] = json;
    }
}

ExitCode runInfo(const CameraPointer& camera, Context& context)
{
    using Fact = std::pair<QString, QJsonValue>;
    Report& report = context.report;
    const QString microseconds = QStringLiteral(" us");

    const QJsonObject driver = driverJson(camera->driver());
    report.line(QStringLiteral("driver"), QStringLiteral("%1 %2, %3")
                                              .arg(driver[QLatin1String("name")].toString(),
                                                   driver[QLatin1String("version")].toString(),
                                                   driver[QLatin1String("path")].toString()));
    report.json()[QLatin1String("driver")] = driver;

    const zrn::CameraFacts facts = camera->facts();
    report.line(QStringLiteral("serial"), QString::fromStdString(facts.serial));
    addConnection(report, *camera);
    report.line(QStringLiteral("image size"),
                QStringLiteral("%1 x %2").arg(facts.width).arg(facts.height));
    report.line(QStringLiteral("sensors"), QString::number(facts.sensorCount));
    report.json()[QLatin1String("camera")] = jsonOf(facts);
    report.line(QStringLiteral("pixel format"), QStringLiteral("%1, %2 bits for each position")
                                                    .arg(facts.pixelFormat)
                                                    .arg(facts.pixelFormat & 0xff));
    report.json()[QLatin1String("pixelFormat")] = qint64{facts.pixelFormat};

    addFact(report, "exposure", QStringLiteral("exposure"), [&] {
        const qint64 exposure = camera->exposure().count();
        return Fact(QString::number(exposure) + microseconds, exposure);
    });
    addFact(report, "exposureRange", QString(), [&] {
        const auto range = camera->exposureRange();
        return rangeFact(range.minimum.count(), range.maximum.count(), microseconds);
    });
    addFact(report, "gain", QStringLiteral("gain"), [&] {
        const qint64 gain = camera->gain();
        return Fact(QString::number(gain), gain);
    });
    addFact(report, "gainRange", QString(), [&] {
        const auto range = camera->gainRange();
        return rangeFact(range.minimum, range.maximum, QString());
    });
    return ExitCode::Success;
}

} // namespace

Command addInfo(CLI::App& app)
{
    return {&addSubcommand(app, "info", "Show what a camera is and how it is set",
                           "info --serial ZR4711"),
            [](Context& context) {
                return runOnCameras(context, {runInfo, true, {}, {}});
            },
            true};
}
