#include "record/report.h"

#include "commands/capture.h"
#include "commands/outages.h"
#include "tool_error.h"

#include <QJsonDocument>

namespace
{

QString lossText(const zrn::StreamLosses& lost)
{
    return QStringLiteral("%1 by the camera, %2 by libuvc, %3 by the ring, %4 by the disk")
        .arg(lost.camera)
        .arg(lost.library)
        .arg(lost.ring)
        .arg(lost.queue);
}

/// What all sets of a camera have together.
struct RecordSum : zrn::RecordedPart {
    std::uint64_t intervals = 0; ///< between frames of a set

    explicit RecordSum(const std::vector<zrn::RecordedPart>& parts)
        : RecordedPart(zrn::sumOf(parts))
    {
        for (const zrn::RecordedPart& part : parts) {
            intervals += part.frames > 0 ? part.frames - 1 : 0;
        }
    }
};

QJsonObject parsed(const std::string& json)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
}

QJsonArray reportSets(Report& report, const zrn::RecordingSession& session,
                      const std::vector<zrn::RecordedPart>& parts)
{
    QJsonArray sets;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const QString path = QString::fromLocal8Bit(session.fileOf(i).c_str());
        QJsonObject set = parsed(zrn::toJson(parts[i], true));
        set[QLatin1String("set")] = path;
        sets.append(set);
        report.line(QStringLiteral("set"), path);
        for (const zrn::RecordedFile& file : parts[i].files) {
            report.line(QStringLiteral("file"),
                        QStringLiteral("%1: %2, %3 missing, %4")
                            .arg(QString::fromLocal8Bit(file.path.c_str()),
                                 countOf(static_cast<qint64>(file.frames), QStringLiteral("frame")))
                            .arg(file.missing)
                            .arg(sizeText(static_cast<double>(file.bytes))));
        }
    }
    return sets;
}

void report(Report& report, const RecordSum& sum, const RecordResult& result,
            const QJsonArray& sets)
{
    const double rate = sum.seconds > 0 ? static_cast<double>(sum.intervals) / sum.seconds : 0;
    report.line(QStringLiteral("frames"), QString::number(sum.frames));
    report.line(QStringLiteral("missing"), QString::number(sum.missing));
    report.line(QStringLiteral("lost"), lossText(sum.lost));
    if (sum.unwritten > 0) {
        report.line(QStringLiteral("not written"), QString::number(sum.unwritten));
    }
    QJsonArray outages;
    for (const zrn::Outage& outage : result.outages) {
        report.line(QStringLiteral("outage"), QString::fromStdString(outage.text()));
        outages.append(::jsonOf(outage));
    }
    QJsonObject& json = report.json();
    json[QLatin1String("seconds")] = result.seconds;
    json[QLatin1String("frames")] = static_cast<qint64>(sum.frames);
    json[QLatin1String("missing")] = static_cast<qint64>(sum.missing);
    json[QLatin1String("rate")] = rate;
    json[QLatin1String("bytes")] = static_cast<qint64>(sum.bytes());
    json[QLatin1String("unwritten")] = static_cast<qint64>(sum.unwritten);
    json[QLatin1String("lost")] =
        QJsonObject{{QStringLiteral("camera"), static_cast<qint64>(sum.lost.camera)},
                    {QStringLiteral("library"), static_cast<qint64>(sum.lost.library)},
                    {QStringLiteral("ring"), static_cast<qint64>(sum.lost.ring)},
                    {QStringLiteral("queue"), static_cast<qint64>(sum.lost.queue)}};
    json[QLatin1String("outages")] = outages;
    json[QLatin1String("sets")] = sets;
}

/// @throws ToolError
ExitCode judge(const Context& context, const zrn::RecordingSession& session, const RecordSum& sum,
               const RecordResult& result)
{
    if (!sum.failure.empty()) {
        throw ToolError(ExitCode::Output,
                        sum.unwritten == 0 ? QString::fromLocal8Bit(sum.failure.c_str())
                                           : QStringLiteral("%1; %2 could not be written")
                                                 .arg(QString::fromLocal8Bit(sum.failure.c_str()),
                                                      countOf(static_cast<qint64>(sum.unwritten),
                                                              QStringLiteral("frame"))),
                        QStringLiteral("the frames that the report counts can be read"));
    }
    if (sum.lost.queue > 0) {
        throw ToolError(
            ExitCode::Output,
            QStringLiteral("the disk was too slow: it lost %1")
                .arg(countOf(static_cast<qint64>(sum.lost.queue), QStringLiteral("frame"))),
            QStringLiteral("a faster disk, fewer cameras, or more --memory"));
    }
    if (const std::string failure = session.failure(); !failure.empty()) {
        throw ToolError(ExitCode::Output, QString::fromLocal8Bit(failure.c_str()));
    }
    if (result.isOut && result.streamed > 0) {
        throw ToolError(ExitCode::Stream, QStringLiteral("the camera was lost and did not return"),
                        QStringLiteral("check the cable; what came before is recorded"));
    }
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    if (!result.parts.empty() && sum.frames == 0) {
        throw ToolError(
            ExitCode::Stream, QStringLiteral("the camera delivered no frame"),
            QStringLiteral("check the cable; 'zrncam doctor' looks for the usual causes"));
    }
    return ExitCode::Success;
}

} // namespace

ExitCode report(Context& context, const zrn::RecordingSession& session, const RecordResult& result)
{
    const RecordSum sum(result.parts);
    report(context.report, sum, result, reportSets(context.report, session, result.parts));
    return judge(context, session, sum, result);
}

QString recordRow(const QJsonObject& camera)
{
    return framesText(camera[QLatin1String("frames")].toInt(),
                      camera[QLatin1String("missing")].toInt()) +
           QStringLiteral(", %1").arg(countOf(camera[QLatin1String("outages")].toArray().size(),
                                              QStringLiteral("outage")));
}
