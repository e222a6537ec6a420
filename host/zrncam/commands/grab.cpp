#include "camera_task.h"
#include "commands/capture.h"
#include "common/driver_error.h"
#include "common/image_blocks.h"
#include "common/image_writer.h"
#include "common/property_keys.h"
#include "common/statistics.h"
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
constexpr int silentGrabs = 3;

struct GrabOptions {
    int frames = 1;
    std::string folder = ".";
    bool raw = false;
    CaptureOptions capture;
};

/// Settings of the camera that go into every image file.
zrnhost::ImageTexts describeSettings(zrnhost::Camera& camera, const CameraIdentity& identity)
{
    unsigned int exposure = 0;
    zrnhost::check(camera->getExposureTime(exposure, 0),
                   QStringLiteral("reading the exposure time"));
    unsigned short gain = 0;
    zrnhost::check(camera->getGain(gain, 0), QStringLiteral("reading the gain"));
    return {{QStringLiteral("Software"), QStringLiteral("zrncam " ZRNCAM_VERSION)},
            {QStringLiteral("Serial"), identity.serial},
            {QStringLiteral("Sensors"), QString::number(identity.sensorCount)},
            {QStringLiteral("Exposure"), QStringLiteral("%1 us").arg(exposure)},
            {QStringLiteral("Gain"), QString::number(gain)}};
}

QString trailerText(quint64 trailer)
{
    return QStringLiteral("0x%1").arg(trailer, 16, 16, QLatin1Char('0'));
}

/// Writes grabbed frames into a folder and keeps the account of them.
class FrameFiles
{
public:
    FrameFiles(const GrabOptions& options, CameraIdentity identity, zrnhost::ImageTexts settings)
        : m_options(options)
        , m_identity(std::move(identity))
        , m_settings(std::move(settings))
        , m_folder(QDir(QString::fromLocal8Bit(options.folder.c_str())).absolutePath())
    {
        if (!m_folder.mkpath(QStringLiteral("."))) {
            throw ToolError(ExitCode::Output,
                            QStringLiteral("the folder %1 cannot be made").arg(m_folder.path()));
        }
    }

    /// @throws ToolError
    void write(const zrnhost::ImageBlocks& images, Report& report)
    {
        const auto count = static_cast<int>(images.size());
        for (int position = 0; position < count; ++position) {
            const CameraSpace::ImageBlock& block = *images[static_cast<std::size_t>(position)];
            if (!zrnhost::isWellFormed(block)) {
                throw ToolError(ExitCode::Stream,
                                QStringLiteral("the driver delivered an image of %1 x %2 with %3 "
                                               "bytes")
                                    .arg(block.width)
                                    .arg(block.height)
                                    .arg(block.data.size()));
            }
            if (position == 0) {
                m_step = m_account.addFrame(zrnhost::trailerOf(block),
                                            zrnhost::StreamAccount::Clock::now(), {});
            }
            writeImage(block, zrnhost::imageLetter(position, count, m_identity.sensorCount),
                       report);
        }
    }

    quint64 frames() const { return m_account.frames(); }
    const zrnhost::StreamAccount& account() const { return m_account; }
    const QJsonArray& images() const { return m_images; }

private:
    void writeImage(const CameraSpace::ImageBlock& block, char letter, Report& report)
    {
        const quint64 trailer = zrnhost::trailerOf(block);
        const QString name =
            QStringLiteral("%1_%2_%3.%4")
                .arg(m_identity.serial)
                .arg(m_account.frames(), 4, 10, QLatin1Char('0'))
                .arg(QLatin1Char(letter))
                .arg(m_options.raw ? QStringLiteral("raw") : QStringLiteral("png"));
        const QString path = m_folder.filePath(name);

        zrnhost::ImageTexts texts = m_settings;
        texts.emplace_back(QStringLiteral("Image"), QString(QLatin1Char(letter)));
        texts.emplace_back(QStringLiteral("FrameNumber"), QString::number(m_step.number));
        texts.emplace_back(QStringLiteral("Trailer"), trailerText(trailer));
        texts.emplace_back(QStringLiteral("Creation Time"),
                           QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
        const QString failure =
            m_options.raw ? zrnhost::writeRaw(path, block) : zrnhost::writePng(path, block, texts);
        if (!failure.isEmpty()) {
            throw ToolError(ExitCode::Output, failure);
        }
        report.line(path);
        m_images.append(QJsonObject{{QStringLiteral("path"), path},
                                    {QStringLiteral("image"), QString(QLatin1Char(letter))},
                                    {QStringLiteral("width"), block.width},
                                    {QStringLiteral("height"), block.height},
                                    {QStringLiteral("frameNumber"), qint64{m_step.number}},
                                    {QStringLiteral("trailer"), trailerText(trailer)}});
    }

    const GrabOptions& m_options;
    CameraIdentity m_identity;
    zrnhost::ImageTexts m_settings;
    QDir m_folder;
    zrnhost::StreamAccount m_account;
    zrnhost::FrameStep m_step;
    QJsonArray m_images;
};

ExitCode runGrab(zrnhost::Camera& camera, Context& context, const GrabOptions& options)
{
    applyCaptureOptions(camera, options.capture);
    const CameraIdentity identity = identify(camera);
    QJsonObject& json = context.report.json();
    json[QLatin1String("camera")] = identity.json();
    FrameFiles files(options, identity, describeSettings(camera, identity));

    {
        const RunningStream stream(camera, context.interrupt);
        Progress progress(context.options.quiet, context.name);
        const auto wanted = static_cast<quint64>(options.frames);
        int silent = 0;
        zrnhost::ImageBlocks images;
        while (files.frames() < wanted) {
            progress.show(QStringLiteral("frame %1 of %2").arg(files.frames() + 1).arg(wanted));
            const ErrorCode result = zrnhost::grab(*camera, images);
            if (context.interrupt.requested()) {
                break;
            }
            if (result == ErrorCode::GrabTimeout && ++silent < silentGrabs) {
                continue;
            }
            zrnhost::check(result, QStringLiteral("grabbing frame %1").arg(files.frames() + 1));
            silent = 0;
            files.write(images, context.report);
            json[QLatin1String("images")] = files.images();
        }
    }
    json[QLatin1String("images")] = files.images();
    json[QLatin1String("frames")] = static_cast<qint64>(files.frames());
    json[QLatin1String("missing")] = static_cast<qint64>(files.account().missing());
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
                return runOnCameras(context, {[&](Session&, zrnhost::Camera& camera, Context& own) {
                                                  return runGrab(camera, own, *options);
                                              },
                                              true, grabRow, grabSum});
            },
            true};
}
