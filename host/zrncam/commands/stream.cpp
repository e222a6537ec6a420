#include "camera_task.h"
#include "commands/capture.h"
#include "commands/stream_keeper.h"
#include "common/driver_error.h"
#include "common/image_blocks.h"
#include "common/property_keys.h"
#include "common/statistics.h"
#include "progress.h"
#include "tool_error.h"

#include <QJsonArray>

#include <algorithm>
#include <memory>
#include <optional>

using zrnhost::StreamAccount;
using Milliseconds = std::chrono::duration<double, std::milli>;

namespace
{

struct StreamOptions {
    double seconds = 10.0;
    bool keepAlive = false;
    CaptureOptions capture;
};

/// What a run of the stream showed.
struct StreamResult {
    StreamAccount account;
    quint64 timeouts = 0;
    quint64 splitFailures = 0;
    double seconds = 0.0;
    QVariant reportedRate; ///< frames per second as the driver measured; invalid if it did not say
    std::vector<Outage> outages; ///< with --keep-alive

    [[nodiscard]] bool isMissingExact() const
    {
        return std::all_of(outages.begin(), outages.end(),
                           [](const Outage& outage) { return outage.isMissingExact; });
    }
};

bool isSplitFailure(ErrorCode result)
{
    return result == ErrorCode::SplitFailed || result == ErrorCode::SplitException;
}

/// @return what a frame told, if one came.
std::optional<zrnhost::FrameStep> grabOnce(zrnhost::Camera& camera, const Interrupt& interrupt,
                                           bool isKeptAlive, StreamResult& result)
{
    zrnhost::ImageBlocks images;
    const auto before = StreamAccount::Clock::now();
    const ErrorCode code = zrnhost::grab(*camera, images);
    const auto after = StreamAccount::Clock::now();
    if (code == ErrorCode::Success && !images.empty() && zrnhost::isWellFormed(*images.front())) {
        return result.account.addFrame(zrnhost::trailerOf(*images.front()), after, after - before);
    }
    if (code == ErrorCode::Success || isSplitFailure(code)) {
        ++result.splitFailures;
    } else if (interrupt.requested()) {
        return std::nullopt; // the stop woke the grab
    } else if (code == ErrorCode::GrabTimeout) {
        ++result.timeouts;
    } else if (!isKeptAlive) {
        zrnhost::check(code, QStringLiteral("grabbing a frame"));
    }
    return std::nullopt;
}

StreamResult streamFor(Session& session, zrnhost::Camera& camera, Context& context,
                       const StreamOptions& options)
{
    StreamResult result;
    Progress progress(context.options.quiet, context.name);
    StreamKeeper keeper(session, camera, options.capture, context.interrupt, progress);
    keeper.start();
    const auto start = StreamAccount::Clock::now();
    const auto elapsed = [start] {
        return std::chrono::duration<double>(StreamAccount::Clock::now() - start).count();
    };
    while (elapsed() < options.seconds && !context.interrupt.requested()) {
        const auto step = grabOnce(camera, context.interrupt, options.keepAlive, result);
        if (step) {
            keeper.noteFrame(elapsed(), *step);
        } else if (options.keepAlive && !context.interrupt.requested()) {
            keeper.repair();
        }
        progress.show(QStringLiteral("%1 s of %2 s, %3 frames, %4 missing")
                          .arg(elapsed(), 0, 'f', 1)
                          .arg(options.seconds, 0, 'f', 1)
                          .arg(result.account.frames())
                          .arg(result.account.missing()));
    }
    result.seconds = elapsed();
    // The driver forgets its rate when the stream stops.
    camera.readProperty(zrnhost::keys::frameRate, result.reportedRate);
    keeper.finish(result.seconds);
    result.outages = keeper.outages();
    return result;
}

void report(Report& report, const StreamResult& result)
{
    const StreamAccount& account = result.account;
    const auto milliseconds = [&account](double percent) {
        return Milliseconds(account.grabs().percentile(percent)).count();
    };
    const QString reported = result.reportedRate.isValid()
                                 ? QString::number(result.reportedRate.toDouble(), 'f', 2)
                                 : QStringLiteral("none");
    report.line(QStringLiteral("duration"), QStringLiteral("%1 s").arg(result.seconds, 0, 'f', 2));
    report.line(QStringLiteral("frames"), QString::number(account.frames()));
    report.line(QStringLiteral("rate"),
                QStringLiteral("%1 frames/s measured, %2 reported by the driver")
                    .arg(account.rate(), 0, 'f', 2)
                    .arg(reported));
    report.line(QStringLiteral("time-outs"), QString::number(result.timeouts));
    report.line(QStringLiteral("split failures"), QString::number(result.splitFailures));
    report.line(QStringLiteral("gaps"),
                QStringLiteral("%1, %2%3 frames missing")
                    .arg(account.gaps())
                    .arg(result.isMissingExact() ? QString() : QStringLiteral("at least "))
                    .arg(account.missing()));
    report.line(QStringLiteral("repeated"), QString::number(account.repeated()));
    report.line(QStringLiteral("grab latency"), QStringLiteral("p50 %1 ms, p99 %2 ms, max %3 ms")
                                                    .arg(milliseconds(50), 0, 'f', 2)
                                                    .arg(milliseconds(99), 0, 'f', 2)
                                                    .arg(milliseconds(100), 0, 'f', 2));
    QJsonArray outages;
    for (const Outage& outage : result.outages) {
        report.line(QStringLiteral("outage"), outage.text());
        outages.append(outage.json());
    }

    QJsonObject& json = report.json();
    json[QLatin1String("seconds")] = result.seconds;
    json[QLatin1String("frames")] = static_cast<qint64>(account.frames());
    json[QLatin1String("measuredRate")] = account.rate();
    json[QLatin1String("reportedRate")] = QJsonValue::fromVariant(result.reportedRate);
    json[QLatin1String("timeouts")] = static_cast<qint64>(result.timeouts);
    json[QLatin1String("splitFailures")] = static_cast<qint64>(result.splitFailures);
    json[QLatin1String("gaps")] = static_cast<qint64>(account.gaps());
    json[QLatin1String("missing")] = static_cast<qint64>(account.missing());
    json[QLatin1String("missingIsExact")] = result.isMissingExact();
    json[QLatin1String("repeated")] = static_cast<qint64>(account.repeated());
    json[QLatin1String("restarts")] = static_cast<qint64>(account.restarts());
    json[QLatin1String("outages")] = outages;
    json[QLatin1String("grabLatencyMs")] = QJsonObject{{QStringLiteral("p50"), milliseconds(50)},
                                                       {QStringLiteral("p99"), milliseconds(99)},
                                                       {QStringLiteral("max"), milliseconds(100)}};
}

ExitCode runStream(Session& session, zrnhost::Camera& camera, Context& context,
                   const StreamOptions& options)
{
    applyCaptureOptions(camera, options.capture);
    const CameraIdentity identity = identify(camera);
    context.report.line(QStringLiteral("camera"), identity.text());
    context.report.json()[QLatin1String("camera")] = identity.json();

    const StreamResult result = streamFor(session, camera, context, options);
    report(context.report, result);
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    if (result.account.frames() == 0) {
        throw ToolError(
            ExitCode::Stream, QStringLiteral("the camera delivered no frame"),
            QStringLiteral("check the cable; 'zrncam doctor' looks for the usual causes"));
    }
    if (!result.outages.empty() && result.outages.back().repair == Outage::Repair::None) {
        throw ToolError(ExitCode::Stream, QStringLiteral("the stream was lost and did not return"),
                        QStringLiteral("check the cable"));
    }
    return ExitCode::Success;
}

QString streamRow(const QJsonObject& camera)
{
    return QStringLiteral("%1: %2 frames, %3 frames/s, %4 missing, %5 time-outs, %6 outages")
        .arg(camera[QLatin1String("camera")][QLatin1String("serial")].toString())
        .arg(camera[QLatin1String("frames")].toInt())
        .arg(camera[QLatin1String("measuredRate")].toDouble(), 0, 'f', 2)
        .arg(camera[QLatin1String("missing")].toInt())
        .arg(camera[QLatin1String("timeouts")].toInt())
        .arg(camera[QLatin1String("outages")].toArray().size());
}

QString streamSum(const std::vector<QJsonObject>& cameras)
{
    int frames = 0;
    double rate = 0;
    int missing = 0;
    for (const QJsonObject& camera : cameras) {
        frames += camera[QLatin1String("frames")].toInt();
        rate += camera[QLatin1String("measuredRate")].toDouble();
        missing += camera[QLatin1String("missing")].toInt();
    }
    return QStringLiteral("%1 cameras, %2 frames, %3 frames/s, %4 missing")
        .arg(cameras.size())
        .arg(frames)
        .arg(rate, 0, 'f', 2)
        .arg(missing);
}

} // namespace

Command addStream(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "stream", "Stream for a while and measure");
    const auto options = std::make_shared<StreamOptions>();
    addArgument(command, "--seconds", options->seconds, "How long",
                {.valueName = "S", .showsDefault = true, .range = std::pair(0.001, 1e9)});
    addFlag(command, "--keep-alive", options->keepAlive,
            "Restart or reconnect when no frame comes, and report each outage");
    addCaptureOptions(command, options->capture);
    return {&command,
            [options](Context& context) {
                return runOnCameras(context,
                                    {[&](Session& session, zrnhost::Camera& camera, Context& own) {
                                         return runStream(session, camera, own, *options);
                                     },
                                     false, streamRow, streamSum});
            },
            true};
}
