#include "client/stream.h"

#include "camera_task.h"
#include "commands/capture.h"
#include "commands/outages.h"
#include "common/date_text.h"
#include "common/frame_timing.h"
#include "common/interrupt.h"
#include "common/progress.h"
#include "common/statistics.h"
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
    std::string output; ///< "-": frames go to standard output
    bool y4m = false;
    CaptureOptions capture;
};

/// What a run of the stream showed.
struct StreamResult {
    StreamAccount account;
    zrnhost::FrameTiming timing;
    zrn::StreamCounters counters;
    double seconds = 0.0;
    QString firstFrame;                 ///< date of its arrival; empty: there was none
    std::optional<double> reportedRate; ///< frames per second as the driver measured, if it said
    std::vector<zrn::Outage> outages;   ///< with --keep-alive
    ErrorCode failure = ErrorCode::Success; ///< that ended the stream
    double silence = 0.0;                   ///< seconds without a frame at the end

    [[nodiscard]] bool isMissingExact() const
    {
        return std::ranges::all_of(outages, &zrn::Outage::isMissingExact);
    }
};

/// Whether the frames ended before the stream did. A pause at the end may be twice as long as the
/// frames are apart, or as the exposure; a busy machine needs a second.
bool endedEarly(const StreamResult& result, std::chrono::microseconds exposure)
{
    constexpr double busyMachine = 1.0;
    constexpr double slowestRate = 0.5; // of a camera that has sent one frame
    const double rate = result.account.rate() > 0 ? result.account.rate() : slowestRate;
    const double longest = 2 * std::max(1 / rate, std::chrono::duration<double>(exposure).count());
    return result.silence > std::max(busyMachine, longest);
}

bool isFatal(ErrorCode failure)
{
    return failure != ErrorCode::Success && failure != ErrorCode::GrabTimeout &&
           failure != ErrorCode::SplitFailed && failure != ErrorCode::SplitException;
}

/// @param pipe takes the frames; may be null
StreamResult streamFor(const CameraPointer& camera, Context& context, const StreamOptions& options,
                       zrnhost::FramePipe* pipe)
{
    constexpr std::chrono::milliseconds progressPeriod(100);
    StreamResult result;
    zrnhost::Progress progress(context.options.quiet, context.name);
    zrn::StreamOptions streamOptions;
    streamOptions.policy = zrn::QueuePolicy::Block;
    streamOptions.keepAlive = options.keepAlive;
    if (options.capture.waitMilliseconds) {
        streamOptions.patience = std::chrono::milliseconds(*options.capture.waitMilliseconds);
    }
    zrn::Stream stream(camera, std::move(streamOptions));
    const auto start = StreamAccount::Clock::now();
    const auto elapsed = [start] {
        return std::chrono::duration<double>(StreamAccount::Clock::now() - start).count();
    };
    while (elapsed() < options.seconds && !context.interrupt.requested()) {
        const std::optional<zrn::Frame> frame = stream.next(progressPeriod);
        if (frame) {
            if (result.firstFrame.isEmpty()) {
                const zrn::WallTime utc = stream.wallTime(frame->arrival);
                result.firstFrame =
                    QString::fromStdString(zrnhost::dateText(utc.sinceEpoch.count()));
            }
            result.account.addFrame(frame->step, frame->arrival, frame->wait);
            result.timing.addFrame(*frame);
            if (pipe && !pipe->write(*frame)) {
                break;
            }
        } else if (const ErrorCode failure = stream.counters().lastFailure;
                   !options.keepAlive && isFatal(failure) && !context.interrupt.requested()) {
            result.failure = failure;
            break;
        }
        while (const std::optional<zrn::StreamEvent> event = stream.nextEvent()) {
            progress.note(textOf(*event));
            result.timing = zrnhost::FrameTiming();
        }
        progress.show(QStringLiteral("%1 s of %2 s, %3 frames, %4 missing")
                          .arg(elapsed(), 0, 'f', 1)
                          .arg(options.seconds, 0, 'f', 1)
                          .arg(result.account.frames())
                          .arg(result.account.missing()));
    }
    result.seconds = elapsed();
    result.silence =
        std::chrono::duration<double>(StreamAccount::Clock::now() - stream.counters().lastFrame)
            .count();
    try { // the driver forgets its rate when the stream stops
        result.reportedRate = zrn::numberOf(camera->property(zrn::keys::frameRate));
    } catch (const zrn::Error&) {
        result.reportedRate.reset();
    }
    stream.stop();
    result.counters = stream.counters();
    result.outages = stream.outages();
    return result;
}

double millisecondsOf(std::chrono::nanoseconds duration)
{
    return Milliseconds(duration).count();
}

QString percentilesOf(const zrnhost::Durations& durations)
{
    return QStringLiteral("p50 %1 ms, p99 %2 ms, max %3 ms")
        .arg(millisecondsOf(durations.percentile(50)), 0, 'f', 3)
        .arg(millisecondsOf(durations.percentile(99)), 0, 'f', 3)
        .arg(millisecondsOf(durations.percentile(100)), 0, 'f', 3);
}

QJsonObject jsonOf(const zrnhost::Durations& durations)
{
    return {{QStringLiteral("p50"), millisecondsOf(durations.percentile(50))},
            {QStringLiteral("p99"), millisecondsOf(durations.percentile(99))},
            {QStringLiteral("max"), millisecondsOf(durations.percentile(100))}};
}

/// What the frames' times tell, where they are the driver's.
void reportTiming(Report& report, const zrnhost::FrameTiming& timing)
{
    const zrnhost::Durations jitter = timing.jitter();
    const auto frames = static_cast<qint64>(timing.frames());
    QJsonObject json{{QStringLiteral("frames"), frames},
                     {QStringLiteral("source"), QLatin1String(zrn::nameOf(timing.source()))},
                     {QStringLiteral("periodMs"), timing.period() * 1000},
                     {QStringLiteral("jitterMs"), jsonOf(jitter)},
                     {QStringLiteral("drift"), QJsonValue()}};
    report.line(QStringLiteral("times of"), QStringLiteral("%1, %2 frames")
                                                .arg(QLatin1String(zrn::nameOf(timing.source())))
                                                .arg(frames));
    report.line(QStringLiteral("period"),
                QStringLiteral("%1 ms").arg(timing.period() * 1000, 0, 'f', 4));
    report.line(QStringLiteral("jitter"), percentilesOf(jitter));
    if (timing.transfers().count() > 0) {
        report.line(QStringLiteral("transfer"), percentilesOf(timing.transfers()));
        report.line(QStringLiteral("hand-over"), percentilesOf(timing.handOvers()));
        json[QLatin1String("transferMs")] = jsonOf(timing.transfers());
        json[QLatin1String("handOverMs")] = jsonOf(timing.handOvers());
    }
    if (const zrnhost::Durations cameraJitter = timing.cameraJitter(); cameraJitter.count() > 0) {
        report.line(QStringLiteral("camera's jitter"), percentilesOf(cameraJitter));
        json[QLatin1String("cameraJitterMs")] = jsonOf(cameraJitter);
    }
    if (timing.capturedToSent().count() > 0) {
        report.line(QStringLiteral("capture-to-sent"), percentilesOf(timing.capturedToSent()));
        json[QLatin1String("capturedToSentMs")] = jsonOf(timing.capturedToSent());
    }
    if (const auto drift = timing.drift()) {
        report.line(QStringLiteral("drift"),
                    QStringLiteral("%1 ppm, standard error %2, of the camera's clock")
                        .arg(drift->partsPerMillion, 0, 'f', 2)
                        .arg(drift->error, 0, 'f', 2));
        json[QLatin1String("drift")] = QJsonObject{{QStringLiteral("ppm"), drift->partsPerMillion},
                                                   {QStringLiteral("error"), drift->error}};
    }
    report.json()[QLatin1String("times")] = json;
}

void report(Report& report, const StreamResult& result)
{
    const StreamAccount& account = result.account;
    const auto milliseconds = [&account](double percent) {
        return Milliseconds(account.grabs().percentile(percent)).count();
    };
    const QString reported = result.reportedRate ? QString::number(*result.reportedRate, 'f', 2)
                                                 : QStringLiteral("none");
    report.line(QStringLiteral("duration"), QStringLiteral("%1 s").arg(result.seconds, 0, 'f', 2));
    if (!result.firstFrame.isEmpty()) {
        report.line(QStringLiteral("first frame"), result.firstFrame);
    }
    report.line(QStringLiteral("frames"), QString::number(account.frames()));
    report.line(QStringLiteral("rate"),
                QStringLiteral("%1 frames/s measured, %2 reported by the driver")
                    .arg(account.rate(), 0, 'f', 2)
                    .arg(reported));
    report.line(QStringLiteral("time-outs"), QString::number(result.counters.timeouts));
    report.line(QStringLiteral("split failures"), QString::number(result.counters.unusable));
    report.line(QStringLiteral("gaps"),
                QStringLiteral("%1, %2%3 frames missing")
                    .arg(account.gaps())
                    .arg(result.isMissingExact() ? QString() : QStringLiteral("at least "))
                    .arg(account.missing()));
    const zrn::StreamLosses& lost = result.counters.lost;
    report.line(QStringLiteral("lost"),
                QStringLiteral("%1 by the camera, %2 by libuvc, %3 by the ring")
                    .arg(lost.camera)
                    .arg(lost.library)
                    .arg(lost.ring));
    report.line(QStringLiteral("repeated"), QString::number(account.repeated()));
    report.line(QStringLiteral("grab latency"), QStringLiteral("p50 %1 ms, p99 %2 ms, max %3 ms")
                                                    .arg(milliseconds(50), 0, 'f', 2)
                                                    .arg(milliseconds(99), 0, 'f', 2)
                                                    .arg(milliseconds(100), 0, 'f', 2));
    if (result.timing.frames() > 1) {
        reportTiming(report, result.timing);
    }
    QJsonArray outages;
    for (const zrn::Outage& outage : result.outages) {
        report.line(QStringLiteral("outage"), QString::fromStdString(outage.text()));
        outages.append(::jsonOf(outage));
    }

    QJsonObject& json = report.json();
    json[QLatin1String("seconds")] = result.seconds;
    json[QLatin1String("firstFrame")] =
        result.firstFrame.isEmpty() ? QJsonValue() : QJsonValue(result.firstFrame);
    json[QLatin1String("frames")] = static_cast<qint64>(account.frames());
    json[QLatin1String("measuredRate")] = account.rate();
    json[QLatin1String("reportedRate")] =
        result.reportedRate ? QJsonValue(*result.reportedRate) : QJsonValue();
    json[QLatin1String("timeouts")] = static_cast<qint64>(result.counters.timeouts);
    json[QLatin1String("splitFailures")] = static_cast<qint64>(result.counters.unusable);
    json[QLatin1String("gaps")] = static_cast<qint64>(account.gaps());
    json[QLatin1String("missing")] = static_cast<qint64>(account.missing());
    json[QLatin1String("lost")] =
        QJsonObject{{QStringLiteral("camera"), static_cast<qint64>(lost.camera)},
                    {QStringLiteral("library"), static_cast<qint64>(lost.library)},
                    {QStringLiteral("ring"), static_cast<qint64>(lost.ring)}};
    json[QLatin1String("missingIsExact")] = result.isMissingExact();
    json[QLatin1String("repeated")] = static_cast<qint64>(account.repeated());
    json[QLatin1String("restarts")] = static_cast<qint64>(account.restarts());
    json[QLatin1String("outages")] = outages;
    json[QLatin1String("grabLatencyMs")] = QJsonObject{{QStringLiteral("p50"), milliseconds(50)},
                                                       {QStringLiteral("p99"), milliseconds(99)},
                                                       {QStringLiteral("max"), milliseconds(100)}};
}

ExitCode runStream(const CameraPointer& camera, Context& context, const StreamOptions& options)
{
    const std::unique_ptr<zrnhost::FramePipe> pipe = makePipe(context, *camera, options.y4m);
    applyCaptureOptions(*camera, options.capture);
    const zrn::CameraFacts facts = camera->facts();
    context.report.line(QStringLiteral("camera"), textOf(facts));
    context.report.json()[QLatin1String("camera")] = ::jsonOf(facts);

    const StreamResult result = streamFor(camera, context, options, pipe.get());
    report(context.report, result);
    if (pipe) {
        checkPipe(*pipe);
    }
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    zrn::check(result.failure, "grabbing a frame");
    if (result.account.frames() == 0) {
        throw ToolError(
            ExitCode::Stream, QStringLiteral("the camera delivered no frame"),
            QStringLiteral("check the cable; 'zrncam doctor' looks for the usual causes"));
    }
    if (!result.outages.empty() && result.outages.back().repair == zrn::Outage::Repair::None) {
        throw ToolError(ExitCode::Stream, QStringLiteral("the stream was lost and did not return"),
                        QStringLiteral("check the cable"));
    }
    if (!options.keepAlive && endedEarly(result, camera->knownExposure())) {
        throw ToolError(
            ExitCode::Stream,
            QStringLiteral("the frames ended early: none came in the last %1 s of %2 s")
                .arg(result.silence, 0, 'f', 1)
                .arg(result.seconds, 0, 'f', 1),
            QStringLiteral("check the cable; with --keep-alive a camera that falls silent is "
                           "restarted, and one that has gone is looked for"));
    }
    return ExitCode::Success;
}

QString streamRow(const QJsonObject& camera)
{
    return QStringLiteral("%1, %2 frames/s, %3 missing, %4 time-outs, %5 outages")
        .arg(countOf(camera[QLatin1String("frames")].toInt(), QStringLiteral("frame")))
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
    return QStringLiteral("%1, %2 frames/s, %3 missing")
        .arg(countOf(frames, QStringLiteral("frame")))
        .arg(rate, 0, 'f', 2)
        .arg(missing);
}

} // namespace

Command addStream(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "stream", "Stream for a while and measure",
                                      "stream --seconds 60 --keep-alive");
    const auto options = std::make_shared<StreamOptions>();
    addArgument(command, "--seconds", options->seconds,
                "How long: seconds, or with a unit, as in 10min",
                {.valueName = "TIME",
                 .showsDefault = true,
                 .unit = Unit::Seconds,
                 .range = std::pair(0.001, 1e9)});
    addFlag(command, "--keep-alive", options->keepAlive,
            "Restart or reconnect when no frame comes, and report each outage");
    addArgument(command, "-o,--output", options->output,
                "-: write the frames to standard output, pixels alone, image A above image B",
                {.valueName = "-", .choices = {"-"}});
    addY4mOption(command, options->y4m);
    addCaptureOptions(command, options->capture);
    return {&command,
            [options](Context& context) {
                return runOnCameras(context, {[&](const CameraPointer& camera, Context& own) {
                                                  return runStream(camera, own, *options);
                                              },
                                              false, streamRow, streamSum});
            },
            true, [options] { return options->output; }};
}
