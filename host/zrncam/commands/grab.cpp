#include "camera_task.h"
#include "client/stream.h"
#include "commands/capture.h"
#include "common/image_writer.h"
#include "interrupt.h"
#include "progress.h"
#include "tool_error.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>

#include <limits>
#include <memory>

namespace
{

/// Waits in a row without a frame after which the camera counts as silent.
constexpr quint64 silentGrabs = 3;

struct GrabOptions {
    int frames = 1;
    std::string folder = ".";
    bool raw = false;
    CaptureOptions capture;
};

/// What goes into every image file.
zrnhost::ImageTexts describe(const zrn::CameraFacts& camera, const zrn::Frame& frame)
{
    return {{QStringLiteral("Software"), QStringLiteral("zrncam " ZRNCAM_VERSION)},
            {QStringLiteral("Serial"), QString::fromStdString(camera.serial)},
            {QStringLiteral("Sensors"), QString::number(camera.sensorCount)},
            {QStringLiteral("Exposure"), QStringLiteral("%1 us").arg(frame.exposure.count())},
            {QStringLiteral("Gain"), QString::number(frame.gain)}};
}

QString trailerText(quint64 trailer)
{
    return QStringLiteral("0x%1").arg(trailer, 16, 16, QLatin1Char('0'));
}

/// Writes grabbed frames into a folder and keeps the account of them.
class FrameFiles
{
public:
    FrameFiles(const GrabOptions& options, zrn::CameraFacts camera)
        : m_options(options)
        , m_camera(std::move(camera))
        , m_folder(QDir(QString::fromLocal8Bit(options.folder.c_str())).absolutePath())
    {
        if (!m_folder.mkpath(QStringLiteral("."))) {
            throw ToolError(ExitCode::Output,
                            QStringLiteral("the folder %1 cannot be made").arg(m_folder.path()));
        }
    }

    /// @throws ToolError
    void write(const zrn::Frame& frame, Report& report)
    {
        ++m_frames;
        m_missing += frame.step.missing;
        for (const zrn::Image& image : frame.images()) {
            writeImage(frame, image, report);
        }
    }

    quint64 frames() const { return m_frames; }
    quint64 missing() const { return m_missing; }
    const QJsonArray& images() const { return m_images; }

private:
    void writeImage(const zrn::Frame& frame, const zrn::Image& image, Report& report)
    {
        const QString letter(QLatin1Char(image.letter));
        const QString name =
            QStringLiteral("%1_%2_%3.%4")
                .arg(QString::fromStdString(m_camera.serial))
                .arg(m_frames, 4, 10, QLatin1Char('0'))
                .arg(letter, m_options.raw ? QStringLiteral("raw") : QStringLiteral("png"));
        const QString path = m_folder.filePath(name);

        zrnhost::ImageTexts texts = describe(m_camera, frame);
        texts.emplace_back(QStringLiteral("Image"), letter);
        texts.emplace_back(QStringLiteral("FrameNumber"), QString::number(frame.step.number));
        texts.emplace_back(QStringLiteral("Trailer"), trailerText(image.trailer()));
        texts.emplace_back(QStringLiteral("Creation Time"),
                           QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
        const QString failure =
            m_options.raw ? zrnhost::writeRaw(path, image)
                          : zrnhost::writePng(path, image, frame.width, frame.height, texts);
        if (!failure.isEmpty()) {
            throw ToolError(ExitCode::Output, failure);
        }
        report.line(path);
        m_images.append(QJsonObject{{QStringLiteral("path"), path},
                                    {QStringLiteral("image"), letter},
                                    {QStringLiteral("width"), qint64{frame.width}},
                                    {QStringLiteral("height"), qint64{frame.height}},
                                    {QStringLiteral("frameNumber"), qint64{frame.step.number}},
                                    {QStringLiteral("trailer"), trailerText(image.trailer())}});
    }

    const GrabOptions& m_options;
    const zrn::CameraFacts m_camera;
    QDir m_folder;
    quint64 m_frames = 0;
    quint64 m_missing = 0;
    QJsonArray m_images;
};

/// @throws zrn::Error when no frame can be expected any more.
void judgeSilence(const zrn::StreamCounters& counters, quint64 timeoutsBefore, quint64 frames)
{
    const bool isPatient = counters.lastFailure == ErrorCode::Success ||
                           (counters.lastFailure == ErrorCode::GrabTimeout &&
                            counters.timeouts < timeoutsBefore + silentGrabs);
    if (!isPatient) {
        zrn::check(counters.lastFailure, "grabbing frame " + std::to_string(frames + 1));
    }
}

ExitCode runGrab(const CameraPointer& camera, Context& context, const GrabOptions& options)
{
    constexpr std::chrono::milliseconds glance(100);
    applyCaptureOptions(*camera, options.capture);
    // The frames name what was read last, which must not be older than this run.
    static_cast<void>(camera->exposure());
    static_cast<void>(camera->gain());
    QJsonObject& json = context.report.json();
    json[QLatin1String("camera")] = jsonOf(camera->facts());
    FrameFiles files(options, camera->facts());

    {
        zrn::StreamOptions streamOptions;
        streamOptions.policy = zrn::QueuePolicy::Block;
        zrn::Stream stream(camera, streamOptions);
        const InterruptAction stopping(context.interrupt, [&stream] { stream.stop(); });
        Progress progress(context.options.quiet, context.name);
        const auto wanted = static_cast<quint64>(options.frames);
        quint64 timeouts = 0; // before the last frame
        while (files.frames() < wanted) {
            progress.show(QStringLiteral("frame %1 of %2").arg(files.frames() + 1).arg(wanted));
            const std::optional<zrn::Frame> frame = stream.next(glance);
            if (context.interrupt.requested()) {
                break;
            }
            const zrn::StreamCounters counters = stream.counters();
            if (frame) {
                timeouts = counters.timeouts;
                files.write(*frame, context.report);
                json[QLatin1String("images")] = files.images();
            } else {
                judgeSilence(counters, timeouts, files.frames());
            }
        }
    }
    json[QLatin1String("images")] = files.images();
    json[QLatin1String("frames")] = static_cast<qint64>(files.frames());
    json[QLatin1String("missing")] = static_cast<qint64>(files.missing());
    return context.interrupt.requested() ? ExitCode::Interrupted : ExitCode::Success;
}

QString grabRow(const QJsonObject& camera)
{
    return QStringLiteral("%1: %2 frames, %3 missing")
        .arg(camera[QLatin1String("camera")][QLatin1String("serial")].toString())
        .arg(camera[QLatin1String("frames")].toInt())
        .arg(camera[QLatin1String("missing")].toInt());
}

QString grabSum(const std::vector<QJsonObject>& cameras)
{
    int frames = 0;
    int missing = 0;
    for (const QJsonObject& camera : cameras) {
        frames += camera[QLatin1String("frames")].toInt();
        missing += camera[QLatin1String("missing")].toInt();
    }
    return QStringLiteral("%1 cameras, %2 frames, %3 missing")
        .arg(cameras.size())
        .arg(frames)
        .arg(missing);
}

} // namespace

Command addGrab(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "grab", "Grab frames and write their images");
    const auto options = std::make_shared<GrabOptions>();
    addArgument(command, "-n,--frames", options->frames, "How many frames",
                {.valueName = "N",
                 .showsDefault = true,
                 .range = std::pair(1, std::numeric_limits<int>::max())});
    addArgument(command, "-o,--output", options->folder, "Folder for the images; made if missing",
                {.valueName = "DIR", .showsDefault = true});
    addFlag(command, "--raw", options->raw,
            "Write pixels and 8-byte trailer as delivered, instead of PNG");
    addCaptureOptions(command, options->capture);
    return {&command,
            [options](Context& context) {
                return runOnCameras(context, {[&](const CameraPointer& camera, Context& own) {
                                                  return runGrab(camera, own, *options);
                                              },
                                              true, grabRow, grabSum});
            },
            true};
}
