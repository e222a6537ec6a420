#include "camera_task.h"
#include "client/camera_recorder.h"
#include "commands/capture.h"
#include "commands/outages.h"
#include "common/camera_settings.h"
#include "common/interrupt.h"
#include "common/progress.h"
#include "common/service_manager.h"
#include "tool_error.h"
#include "triggers.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace
{

using Clock = std::chrono::steady_clock;

struct RecordOptions {
    std::string folder = ".";
    std::string name = "recording";
    std::optional<double> seconds;
    std::optional<int> frames;
    std::string segment;
    std::optional<double> before; ///< seconds; frames are recorded around triggers
    int sets = 0;
    std::string memory;
    CaptureOptions capture;
};

/// A number with a unit: bytes, or nanoseconds.
struct Amount {
    double number = 0;
    bool isTime = false;
};

struct AmountUnit {
    std::string_view name;
    double factor;
    bool isTime;
};
constexpr std::array amountUnits = {
    AmountUnit{"B", 1, false},        AmountUnit{"kB", 1e3, false},
    AmountUnit{"MB", 1e6, false},     AmountUnit{"GB", 1e9, false},
    AmountUnit{"TB", 1e12, false},    AmountUnit{"KiB", 1024, false},
    AmountUnit{"MiB", 0x1p20, false}, AmountUnit{"GiB", 0x1p30, false},
    AmountUnit{"ms", 1e6, true},      AmountUnit{"s", 1e9, true},
    AmountUnit{"min", 60e9, true},    AmountUnit{"h", 3600e9, true},
};

std::optional<Amount> amountIn(const std::string& text)
{
    constexpr double most = 1e18; // fits the integers that it goes to
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string_view name(rest, static_cast<std::size_t>(end - rest));
    const auto unit = std::ranges::find(amountUnits, name, &AmountUnit::name);
    if (error != std::errc() || unit == amountUnits.end()) {
        return std::nullopt;
    }
    const Amount amount{std::floor(number * unit->factor), unit->isTime};
    return amount.number >= 1 && amount.number <= most ? std::optional(amount) : std::nullopt;
}

[[noreturn]] void refuse(const QString& message)
{
    throw ToolError(ExitCode::Usage, QStringLiteral("record: %1").arg(message),
                    QStringLiteral("'zrncam record --help' shows what it takes"));
}

std::chrono::nanoseconds nanosecondsOf(double seconds)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

/// @throws ToolError when the options do not go together
zrn::RecordingPlan planOf(const RecordOptions& options)
{
    zrn::RecordingPlan plan;
    plan.folder = options.folder;
    plan.name = options.name;
    if (options.folder == "-") {
        refuse(QStringLiteral("a recording goes to files, not to a pipe"));
    }
    if (options.name.empty() || options.name.find('/') != std::string::npos) {
        refuse(QStringLiteral("--name: \"%1\" is no name of files")
                   .arg(QString::fromLocal8Bit(options.name.c_str())));
    }
    plan.waitsForTrigger = options.before.has_value();
    plan.before = nanosecondsOf(options.before.value_or(0));
    if (!plan.waitsForTrigger && options.sets > 0) {
        refuse(QStringLiteral("--triggers is for recordings with --before"));
    }
    if (!plan.waitsForTrigger && (options.seconds == 0.0 || options.frames == 0)) {
        refuse(QStringLiteral("nothing is to be recorded"));
    }
    plan.mostSets = static_cast<std::uint64_t>(options.sets);
    if (options.seconds) {
        plan.duration = nanosecondsOf(*options.seconds);
    }
    if (options.frames) {
        plan.frames = static_cast<std::uint64_t>(*options.frames);
    }
    if (!options.segment.empty()) {
        const std::optional<Amount> amount = amountIn(options.segment);
        if (!amount) {
            refuse(QStringLiteral("--segment: \"%1\" is neither a size, as in 1GB, nor a time, as "
                                  "in 10min")
                       .arg(QString::fromLocal8Bit(options.segment.c_str())));
        }
        plan.segmentBytes = amount->isTime ? 0 : static_cast<std::uint64_t>(amount->number);
        plan.segmentDuration = std::chrono::nanoseconds(
            amount->isTime ? static_cast<std::int64_t>(amount->number) : 0);
    }
    constexpr std::uint64_t enoughBeforeTriggers = 1'000'000'000;
    plan.memoryBytes = plan.waitsForTrigger ? enoughBeforeTriggers : plan.memoryBytes;
    if (!options.memory.empty()) {
        const std::optional<Amount> amount = amountIn(options.memory);
        if (!amount || amount->isTime) {
            refuse(QStringLiteral("--memory: \"%1\" is no size, as in 2GB")
                       .arg(QString::fromLocal8Bit(options.memory.c_str())));
        }
        plan.memoryBytes = static_cast<std::uint64_t>(amount->number);
    }
    return plan;
}

QString sizeText(double bytes)
{
    constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
    constexpr double step = 1000;
    std::size_t unit = 0;
    while (bytes >= step && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return QStringLiteral("%1 %2")
        .arg(bytes, 0, 'f', unit == 0 || bytes >= 100 ? 0 : 1)
        .arg(QLatin1String(units.at(unit)));
}

/// The progress of all cameras together, which each tells of from its own thread.
class RecordProgress
{
public:
    explicit RecordProgress(bool isQuiet)
        : m_progress(isQuiet)
    {
    }

    void note(const QString& name, const QString& text)
    {
        const std::lock_guard lock(m_mutex);
        m_progress.note(name.isEmpty() ? text : QStringLiteral("%1: %2").arg(name, text));
    }

    void show(const QString& name, const zrn::CameraRecorderProgress& state)
    {
        const std::lock_guard lock(m_mutex);
        m_states[name] = state;
        zrn::CameraRecorderProgress sum;
        sum.freeBytes = state.freeBytes;
        bool isWaiting = true;
        for (const auto& [camera, one] : m_states) {
            sum.frames += one.frames;
            sum.missing += one.missing;
            sum.queuedBytes += one.queuedBytes;
            isWaiting = isWaiting && (one.isWaiting || one.isDone);
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
        m_progress.show(
            QStringLiteral("%1 s%2%3, %4 frames/s, %5 missing, %6 queued, %7 free")
                .arg(seconds, 0, 'f', 1)
                .arg(isWaiting ? QStringLiteral(", waiting for a trigger, ") : QStringLiteral(", "),
                     countOf(static_cast<qint64>(sum.frames), QStringLiteral("frame")))
                .arg(rateOf(sum.frames), 0, 'f', 1)
                .arg(sum.missing)
                .arg(sizeText(static_cast<double>(sum.queuedBytes)),
                     sizeText(static_cast<double>(sum.freeBytes))));
    }

private:
    /// Frames written per second, in the last second or two.
    double rateOf(std::uint64_t frames)
    {
        constexpr std::chrono::seconds window(1);
        const Clock::time_point now = Clock::now();
        if (now - m_newer.first >= window) {
            m_older = std::exchange(m_newer, {now, frames});
        }
        const double seconds = std::chrono::duration<double>(now - m_older.first).count();
        return seconds > 0
                   ? (static_cast<double>(frames) - static_cast<double>(m_older.second)) / seconds
                   : 0;
    }

    const Clock::time_point m_start = Clock::now();
    std::mutex m_mutex; // guards what follows
    zrnhost::Progress m_progress;
    std::map<QString, zrn::CameraRecorderProgress> m_states;
    std::pair<Clock::time_point, std::uint64_t> m_older{m_start, 0};
    std::pair<Clock::time_point, std::uint64_t> m_newer{m_start, 0};
};

/// Tells a service manager that the cameras are being recorded: as long as each one sends frames,
/// or is known to be out.
class SignsOfLife
{
public:
    void tell(const QString& name, const zrn::StreamCounters& counters)
    {
        const std::lock_guard lock(m_mutex);
        const auto [camera, isNew] = m_cameras.try_emplace(name);
        if (isNew) {
            zrnhost::tellServiceManager("READY=1");
        }
        Camera& state = camera->second;
        state.isAlive = state.isAlive || counters.outage || counters.frames != state.frames;
        state.frames = counters.frames;
        if (std::ranges::all_of(m_cameras, [](const auto& one) { return one.second.isAlive; })) {
            tellAlive();
        }
    }

    /// It is done, or its frames are being written to the end.
    void forget(const QString& name)
    {
        const std::lock_guard lock(m_mutex);
        m_cameras.erase(name);
        tellAlive();
    }

private:
    struct Camera {
        std::uint64_t frames = 0;
        bool isAlive = false; ///< since the last sign
    };

    void tellAlive()
    {
        zrnhost::tellServiceManager("WATCHDOG=1");
        for (auto& [name, camera] : m_cameras) {
            camera.isAlive = false;
        }
    }

    std::mutex m_mutex;
    std::map<QString, Camera> m_cameras;
};

/// What the cameras of a run share.
struct Recording {
    const RecordOptions& options;
    std::shared_ptr<zrn::RecordingSession> session;
    RecordProgress progress;
    SignsOfLife signs;
};

/// What a file begins with, as the viewer's recordings do.
std::string metadataOf(zrn::Camera& camera)
{
    const zrn::CameraFacts facts = camera.facts();
    const QJsonObject settings{{QStringLiteral("Exposure"), qint64{camera.knownExposure().count()}},
                               {QStringLiteral("Gain"), qint64{camera.knownGain()}}};
    return QJsonDocument(
               QJsonObject{{QStringLiteral("serial"), QString::fromStdString(facts.serial)},
                           {QStringLiteral("time"),
                            QDateTime::currentDateTime().toString(Qt::ISODateWithMs)},
                           {QStringLiteral("width"), qint64{facts.width}},
                           {QStringLiteral("height"), qint64{facts.height}},
                           {QStringLiteral("sensors"), facts.sensorCount},
                           {QStringLiteral("settings"), settings}})
        .toJson(QJsonDocument::Compact)
        .toStdString();
}

/// How the stream ended.
struct StreamEnd {
    zrn::StreamCounters counters;
    std::vector<zrn::Outage> outages;
    double seconds = 0;
    bool isOut = false; ///< without frames in the end
};

/// Tells what has changed since it was asked before.
class Teller
{
public:
    Teller(Recording& recording, const QString& name)
        : m_recording(recording)
        , m_name(name)
    {
    }

    void note(const zrn::StreamEvent& event) { m_recording.progress.note(m_name, textOf(event)); }

    void tell(const zrn::CameraRecorderProgress& state)
    {
        if (state.isWaiting && !std::exchange(m_toldWaiting, true)) {
            m_recording.progress.note(m_name, QStringLiteral("waiting for a trigger"));
        }
        if (state.isShortened && !std::exchange(m_toldShortened, true)) {
            m_recording.progress.note(
                m_name,
                QStringLiteral("%1 of memory do not hold %2 s; --memory takes more")
                    .arg(sizeText(static_cast<double>(m_recording.session->plan().memoryBytes)))
                    .arg(*m_recording.options.before));
        }
        if (state.queueLosses > 0 && !std::exchange(m_toldSlow, true)) {
            m_recording.progress.note(m_name, QStringLiteral("the disk is too slow: frames are "
                                                             "lost"));
        }
        if (m_recording.session->plan().waitsForTrigger) {
            tellSets(state);
        }
        m_recording.progress.show(m_name, state);
    }

private:
    void tellSets(const zrn::CameraRecorderProgress& state)
    {
        while (m_toldDone < state.sets) {
            if (m_toldBegun == m_toldDone) {
                ++m_toldBegun;
                m_recording.progress.note(m_name, QStringLiteral("set %1 begins").arg(m_toldBegun));
            }
            if (m_toldDone == state.doneSets) {
                return;
            }
            ++m_toldDone;
            m_recording.progress.note(m_name, QStringLiteral("set %1 is complete").arg(m_toldDone));
        }
    }

    Recording& m_recording;
    const QString m_name;
    std::size_t m_toldBegun = 0; ///< sets
    std::size_t m_toldDone = 0;  ///< likewise
    bool m_toldWaiting = false;
    bool m_toldShortened = false;
    bool m_toldSlow = false;
};

StreamEnd streamInto(zrn::CameraRecorder& recorder, const CameraPointer& camera, Context& context,
                     Recording& recording)
{
    constexpr std::chrono::milliseconds progressPeriod(100);
    Teller teller(recording, context.name);
    std::promise<zrn::Stream*> started;
    zrn::StreamOptions options;
    options.keepAlive = true;
    if (const std::optional<int> wait = recording.options.capture.waitMilliseconds) {
        options.patience = std::chrono::milliseconds(*wait);
    }
    options.onFrame = [&recorder, stream = started.get_future().share()](const zrn::Frame& frame) {
        recorder.add(frame, stream.get()->counters().lost);
    };
    options.onEvent = [&](const zrn::StreamEvent& event) {
        recorder.note(event);
        teller.note(event);
    };
    StreamEnd end;
    {
        zrn::Stream stream(camera, std::move(options));
        started.set_value(&stream);
        const Clock::time_point start = Clock::now();
        while (!recorder.waitUntilDone(progressPeriod) && !context.interrupt.requested()) {
            teller.tell(recorder.progress());
            recording.signs.tell(context.name, stream.counters());
        }
        end.isOut = stream.counters().outage.has_value();
        stream.stop();
        end.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        end.counters = stream.counters();
        end.outages = stream.outages();
    }
    recorder.stop();
    do {
        teller.tell(recorder.progress());
        recording.signs.forget(context.name);
    } while (!recorder.waitUntilDone(progressPeriod));
    recorder.finish();
    teller.tell(recorder.progress());
    return end;
}

QString lossText(const zrn::StreamLosses& lost)
{
    return QStringLiteral("%1 by the camera, %2 by libuvc, %3 by the ring, %4 by the disk")
        .arg(lost.camera)
        .arg(lost.library)
        .arg(lost.ring)
        .arg(lost.queue);
}

/// What all sets of a camera have together.
struct RecordSum {
    std::uint64_t frames = 0;
    std::uint64_t missing = 0;
    std::uint64_t unwritten = 0;
    std::uint64_t bytes = 0;
    std::uint64_t intervals = 0; ///< between frames of a set
    double seconds = 0;          ///< of these
    zrn::StreamLosses lost;
    std::string failure;

    explicit RecordSum(const std::vector<zrn::RecordedPart>& parts)
    {
        for (const zrn::RecordedPart& part : parts) {
            frames += part.frames;
            missing += part.missing;
            unwritten += part.unwritten;
            intervals += part.frames > 0 ? part.frames - 1 : 0;
            seconds += part.seconds;
            lost.camera += part.lost.camera;
            lost.library += part.lost.library;
            lost.ring += part.lost.ring;
            lost.queue += part.lost.queue;
            failure = failure.empty() ? part.failure : failure;
            for (const zrn::RecordedFile& file : part.files) {
                bytes += file.bytes;
            }
        }
    }
};

QJsonObject parsed(const std::string& json)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
}

void report(Context& context, const Recording& recording,
            const std::vector<zrn::RecordedPart>& parts, const RecordSum& sum, const StreamEnd& end)
{
    Report& report = context.report;
    QJsonArray sets;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const QString path = QString::fromLocal8Bit(recording.session->fileOf(i).c_str());
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
    const double rate = sum.seconds > 0 ? static_cast<double>(sum.intervals) / sum.seconds : 0;
    report.line(QStringLiteral("frames"), QString::number(sum.frames));
    report.line(QStringLiteral("missing"), QString::number(sum.missing));
    report.line(QStringLiteral("lost"), lossText(sum.lost));
    if (sum.unwritten > 0) {
        report.line(QStringLiteral("not written"), QString::number(sum.unwritten));
    }
    QJsonArray outages;
    for (const zrn::Outage& outage : end.outages) {
        report.line(QStringLiteral("outage"), QString::fromStdString(outage.text()));
        outages.append(::jsonOf(outage));
    }
    QJsonObject& json = report.json();
    json[QLatin1String("seconds")] = end.seconds;
    json[QLatin1String("frames")] = static_cast<qint64>(sum.frames);
    json[QLatin1String("missing")] = static_cast<qint64>(sum.missing);
    json[QLatin1String("rate")] = rate;
    json[QLatin1String("bytes")] = static_cast<qint64>(sum.bytes);
    json[QLatin1String("unwritten")] = static_cast<qint64>(sum.unwritten);
    json[QLatin1String("lost")] =
        QJsonObject{{QStringLiteral("camera"), static_cast<qint64>(sum.lost.camera)},
                    {QStringLiteral("library"), static_cast<qint64>(sum.lost.library)},
                    {QStringLiteral("ring"), static_cast<qint64>(sum.lost.ring)},
                    {QStringLiteral("queue"), static_cast<qint64>(sum.lost.queue)}};
    json[QLatin1String("outages")] = outages;
    json[QLatin1String("sets")] = sets;
}

/// @throws ToolError where frames are lost that need not be
ExitCode judge(const Context& context, const Recording& recording, const RecordSum& sum,
               const StreamEnd& end, bool hasBegun)
{
    if (!sum.failure.empty()) {
        throw ToolError(ExitCode::Output,
                        sum.unwritten == 0 ? QString::fromLocal8Bit(sum.failure.c_str())
                                           : QStringLiteral("%1; %2 could not be written")
                                                 .arg(QString::fromLocal8Bit(sum.failure.c_str()),
                                                      countOf(static_cast<qint64>(sum.unwritten),
                                                              QStringLiteral("frame"))),
                        QStringLiteral("what was written before is complete"));
    }
    if (sum.lost.queue > 0) {
        throw ToolError(
            ExitCode::Output,
            QStringLiteral("the disk was too slow: it lost %1")
                .arg(countOf(static_cast<qint64>(sum.lost.queue), QStringLiteral("frame"))),
            QStringLiteral("a faster disk, fewer cameras, or more --memory"));
    }
    if (const std::string failure = recording.session->failure(); !failure.empty()) {
        throw ToolError(ExitCode::Output, QString::fromLocal8Bit(failure.c_str()));
    }
    if (end.isOut && end.counters.frames > 0) {
        throw ToolError(ExitCode::Stream, QStringLiteral("the camera was lost and did not return"),
                        QStringLiteral("check the cable; what came before is recorded"));
    }
    if (context.interrupt.requested()) {
        return ExitCode::Interrupted;
    }
    if (hasBegun && sum.frames == 0) {
        throw ToolError(
            ExitCode::Stream, QStringLiteral("the camera delivered no frame"),
            QStringLiteral("check the cable; 'zrncam doctor' looks for the usual causes"));
    }
    return ExitCode::Success;
}

ExitCode recordCamera(const CameraPointer& camera, Context& context, Recording& recording)
{
    applyCaptureOptions(*camera, recording.options.capture);
    camera->readSettings(); // files and frames name what was read last
    const zrn::CameraFacts facts = camera->facts();
    context.report.line(QStringLiteral("camera"), textOf(facts));
    context.report.json()[QLatin1String("camera")] = ::jsonOf(facts);

    zrn::CameraRecorder recorder(recording.session, facts.serial,
                                 [camera] { return metadataOf(*camera); });
    recorder.watch(*camera);
    const StreamEnd end = streamInto(recorder, camera, context, recording);
    const std::vector<zrn::RecordedPart> parts = recorder.parts();
    const RecordSum sum(parts);
    report(context, recording, parts, sum, end);
    return judge(context, recording, sum, end, !parts.empty());
}

QString recordText(qint64 frames, qint64 missing)
{
    return QStringLiteral("%1, %2 missing")
        .arg(countOf(frames, QStringLiteral("frame")))
        .arg(missing);
}

QString recordRow(const QJsonObject& camera)
{
    return recordText(camera[QLatin1String("frames")].toInt(),
                      camera[QLatin1String("missing")].toInt()) +
           QStringLiteral(", %1").arg(countOf(camera[QLatin1String("outages")].toArray().size(),
                                              QStringLiteral("outage")));
}

QString recordSum(const std::vector<QJsonObject>& cameras)
{
    int frames = 0;
    int missing = 0;
    for (const QJsonObject& camera : cameras) {
        frames += camera[QLatin1String("frames")].toInt();
        missing += camera[QLatin1String("missing")].toInt();
    }
    return recordText(frames, missing);
}

ExitCode runRecord(Context& context, const RecordOptions& options)
{
    const auto session = std::make_shared<zrn::RecordingSession>(planOf(options));
    Recording recording{options, session, RecordProgress(context.options.quiet), {}};
    std::optional<Triggers> triggers;
    if (options.before) {
        triggers.emplace([session] { session->trigger(); });
    }
    return runOnCameras(context, {[&](const CameraPointer& camera, Context& own) {
                                      return recordCamera(camera, own, recording);
                                  },
                                  true, recordRow, recordSum});
}

} // namespace

Command addRecord(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "record", "Record every frame of one or several cameras into files",
                      "record --all -o recordings --seconds 10min --segment 1GB");
    const auto options = std::make_shared<RecordOptions>();
    addArgument(command, "-o,--output", options->folder, "Folder for the files, made if missing",
                {.valueName = "DIR", .showsDefault = true});
    addArgument(command, "--name", options->name,
                "What the files' names begin with: NAME_0001.json, NAME_0001_SERIAL.zrnrec",
                {.valueName = "NAME", .showsDefault = true});
    addArgument(command, "--seconds", options->seconds,
                "How long: seconds, or with a unit, as in 10min (default: until Ctrl-C)",
                {.valueName = "TIME", .unit = Unit::Seconds, .range = std::pair(0.0, 1e9)});
    addArgument(command, "-n,--frames", options->frames,
                "How many frames of each camera (default: until Ctrl-C)",
                {.valueName = "N", .range = std::pair(0, std::numeric_limits<int>::max())});
    addArgument(command, "--segment", options->segment,
                "Begin another file after so much: a size, as in 1GB, or a time, as in 10min",
                {.valueName = "SIZE|TIME"});
    addArgument(
        command, "--before", options->before,
        "Wait for triggers (a line on standard input, or SIGUSR1) and record so much before "
        "each, from memory; --seconds and --frames count from the trigger on",
        {.valueName = "TIME", .unit = Unit::Seconds, .range = std::pair(0.0, 1e6)});
    addArgument(command, "--triggers", options->sets,
                "With --before: end after so many recordings (default: at Ctrl-C)",
                {.valueName = "N", .range = std::pair(1, std::numeric_limits<int>::max())});
    addArgument(command, "--memory", options->memory,
                "Memory of each camera for frames that wait for a trigger or for the disk "
                "(default: 256MiB; 1GB with --before)",
                {.valueName = "SIZE"});
    addSettingOptions(command, options->capture);
    return {&command,
            [options](Context& context) { return runRecord(context, *options); },
            true,
            {},
            true};
}
