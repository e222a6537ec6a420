#include "camera_task.h"
#include "client/stream.h"
#include "commands/capture.h"
#include "common/date_text.h"
#include "common/image_writer.h"
#include "common/interrupt.h"
#include "common/progress.h"
#include "common/writer_pool.h"
#include "tool_error.h"

#include <QDir>
#include <QJsonArray>

#include <algorithm>
#include <atomic>
#include <deque>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <set>

namespace
{

/// Waits in a row without a frame after which the camera counts as silent.
constexpr quint64 silentGrabs = 3;

struct GrabOptions {
    int frames = 1;
    std::string folder = ".";
    bool raw = false;
    bool y4m = false;
    CaptureOptions capture;
};

/// A frame, and the date of its arrival.
struct DatedFrame {
    zrn::Frame frame;
    QString utc;
};

/// What goes into every image file.
zrnhost::ImageTexts describe(const zrn::CameraFacts& camera, const DatedFrame& dated)
{
    const zrn::Frame& frame = dated.frame;
    return {{QStringLiteral("Software"), QStringLiteral("zrncam " ZRNCAM_VERSION)},
            {QStringLiteral("Serial"), QString::fromStdString(camera.serial)},
            {QStringLiteral("Sensors"), QString::number(camera.sensorCount)},
            {QStringLiteral("Exposure"), QStringLiteral("%1 us").arg(frame.exposure.count())},
            {QStringLiteral("Gain"), QString::number(frame.gain)},
            {QStringLiteral("FrameNumber"), QString::number(frame.step.number)},
            {QStringLiteral("Creation Time"), dated.utc}};
}

QString trailerText(quint64 trailer)
{
    return QStringLiteral("0x%1").arg(trailer, 16, 16, QLatin1Char('0'));
}

/// Writes grabbed frames into a folder, on threads of their own.
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

    /// Waits while too many frames wait to be written. @param number of the frame in this run
    /// @return false when writing has failed
    bool add(const DatedFrame& dated, quint64 number)
    {
        return std::ranges::all_of(dated.frame.images(), [&](const zrn::Image& image) {
            return addImage(dated, image, number);
        });
    }

    /// Waits until all is written. @return empty, or why that failed
    QString finish(zrnhost::Progress& progress)
    {
        constexpr std::chrono::milliseconds glance(100);
        while (!m_pool.waitForAll(glance)) {
            progress.show(QStringLiteral("%1 images are still to be written").arg(m_pool.left()));
        }
        return m_pool.failure();
    }

    /// Lines of the files that are written, up to one that is not yet.
    void tell(Report& report)
    {
        while (m_told < m_files.size() && m_files[m_told].isWritten) {
            report.line(m_files[m_told].path);
            ++m_told;
        }
    }

    /// After finish().
    QJsonArray images() const
    {
        QJsonArray images;
        for (const ImageFile& file : m_files) {
            if (file.isWritten) {
                images.append(file.json);
            }
        }
        return images;
    }

    /// Frames all of whose images are written. After finish().
    quint64 frames() const
    {
        std::set<quint64> frames;
        for (const ImageFile& file : m_files) {
            frames.insert(file.frame);
        }
        for (const ImageFile& file : m_files) {
            if (!file.isWritten) {
                frames.erase(file.frame);
            }
        }
        return frames.size();
    }

private:
    struct ImageFile {
        quint64 frame = 0; ///< its number in this run
        QString path;
        QJsonObject json;
        std::atomic<bool> isWritten = false;
    };

    bool addImage(const DatedFrame& dated, const zrn::Image& image, quint64 number)
    {
        const zrn::Frame& frame = dated.frame;
        const QString letter(QLatin1Char(image.letter));
        const QString name =
            QStringLiteral("%1_%2_%3.%4")
                .arg(QString::fromStdString(m_camera.serial))
                .arg(number, 4, 10, QLatin1Char('0'))
                .arg(letter, m_options.raw ? QStringLiteral("raw") : QStringLiteral("png"));
        ImageFile& file = m_files.emplace_back();
        file.frame = number;
        file.path = m_folder.filePath(name);
        file.json = {{QStringLiteral("path"), file.path},
                     {QStringLiteral("image"), letter},
                     {QStringLiteral("width"), qint64{frame.width}},
                     {QStringLiteral("height"), qint64{frame.height}},
                     {QStringLiteral("frameNumber"), qint64{frame.step.number}},
                     {QStringLiteral("utc"), dated.utc},
                     {QStringLiteral("trailer"), trailerText(image.trailer())}};
        zrnhost::ImageTexts texts = describe(m_camera, dated);
        texts.emplace_back(QStringLiteral("Image"), letter);
        texts.emplace_back(QStringLiteral("Trailer"), trailerText(image.trailer()));
        return m_pool.add(image.bytes.size(), [this, frame, image, texts, &file] {
            const QString failure = m_options.raw ? zrnhost::writeRaw(file.path, image)
                                                  : zrnhost::writePng(file.path, image, frame.width,
                                                                      frame.height, texts);
            file.isWritten = failure.isEmpty();
            return failure;
        });
    }

    const GrabOptions& m_options;
    const zrn::CameraFacts m_camera;
    QDir m_folder;
    std::deque<ImageFile> m_files; ///< which jobs of the pool point at
    std::size_t m_told = 0;
    zrnhost::WriterPool m_pool;
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

/// What became of the frames.
struct GrabAccount {
    quint64 frames = 0;
    quint64 written = 0; ///< of these
    quint64 missing = 0;
};

/// Takes a frame. @return whether it can take another one
using FrameTaker = std::function<bool(const DatedFrame&)>;

/// Hands frames over until there are enough, or the user or whoever takes them has. @throws
/// zrn::Error
void grabFrames(const CameraPointer& camera, Context& context, quint64 wanted,
                zrnhost::Progress& progress, GrabAccount& account, const FrameTaker& take)
{
    constexpr std::chrono::milliseconds glance(100);
    zrn::StreamOptions streamOptions;
    streamOptions.policy = zrn::QueuePolicy::Block;
    zrn::Stream stream(camera, streamOptions);
    const zrnhost::InterruptAction stopping(context.interrupt, [&stream] { stream.stop(); });
    quint64 timeouts = 0; // before the last frame
    while (account.frames < wanted) {
        progress.show(QStringLiteral("frame %1 of %2").arg(account.frames + 1).arg(wanted));
        const std::optional<zrn::Frame> frame = stream.next(glance);
        if (context.interrupt.requested()) {
            return;
        }
        const zrn::StreamCounters counters = stream.counters();
        if (!frame) {
            judgeSilence(counters, timeouts, account.frames);
            continue;
        }
        timeouts = counters.timeouts;
        ++account.frames;
        account.missing += frame->step.missing;
        const std::int64_t utc = stream.wallTime(frame->arrival).sinceEpoch.count();
        if (!take({*frame, QString::fromStdString(zrnhost::dateText(utc))})) {
            return;
        }
    }
}

/// Grabs into files. What came before a failure is written all the same. @return empty, or why a
/// file could not be written
QString grabToFiles(const CameraPointer& camera, Context& context, const GrabOptions& options,
                    zrnhost::Progress& progress, GrabAccount& account, std::exception_ptr& failure)
{
    FrameFiles files(options, camera->facts());
    try {
        grabFrames(camera, context, static_cast<quint64>(options.frames), progress, account,
                   [&](const DatedFrame& frame) {
                       const bool isTaken = files.add(frame, account.frames);
                       files.tell(context.report);
                       return isTaken;
                   });
    } catch (const zrn::Error&) {
        failure = std::current_exception();
    }
    const QString notWritten = files.finish(progress);
    files.tell(context.report);
    context.report.json()[QLatin1String("images")] = files.images();
    account.written = files.frames();
    return notWritten;
}

ExitCode runGrab(const CameraPointer& camera, Context& context, const GrabOptions& options)
{
    const std::unique_ptr<zrnhost::FramePipe> pipe = makePipe(context, *camera, options.y4m);
    applyCaptureOptions(*camera, options.capture);
    // The frames name what was read last, which must not be older than this run.
    static_cast<void>(camera->exposure());
    static_cast<void>(camera->gain());
    QJsonObject& json = context.report.json();
    json[QLatin1String("camera")] = jsonOf(camera->facts());
    zrnhost::Progress progress(context.options.quiet, context.name);
    GrabAccount account;
    std::exception_ptr failure;
    QString notWritten;
    if (pipe) {
        grabFrames(camera, context, static_cast<quint64>(options.frames), progress, account,
                   [&](const DatedFrame& dated) {
                       const bool isWritten = pipe->write(dated.frame);
                       account.written += isWritten ? 1 : 0;
                       return isWritten;
                   });
    } else {
        notWritten = grabToFiles(camera, context, options, progress, account, failure);
    }
    const auto written = static_cast<qint64>(account.written);
    context.report.line(
        written == static_cast<qint64>(account.frames)
            ? framesText(written, static_cast<qint64>(account.missing))
            : QStringLiteral("%1 of %2 written, %3 missing")
                  .arg(written)
                  .arg(countOf(static_cast<qint64>(account.frames), QStringLiteral("frame")))
                  .arg(account.missing));
    json[QLatin1String("frames")] = written;
    json[QLatin1String("missing")] = static_cast<qint64>(account.missing);
    if (pipe) {
        checkPipe(*pipe);
    }
    if (!notWritten.isEmpty()) {
        throw ToolError(ExitCode::Output, notWritten);
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    return context.interrupt.requested() ? ExitCode::Interrupted : ExitCode::Success;
}

QString grabRow(const QJsonObject& camera)
{
    return framesText(camera[QLatin1String("frames")].toInt(),
                      camera[QLatin1String("missing")].toInt());
}

} // namespace

Command addGrab(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "grab", "Grab frames and write their images",
                                      "grab -n 5 -o pictures --exposure 2ms");
    const auto options = std::make_shared<GrabOptions>();
    addArgument(command, "-n,--frames", options->frames, "How many frames",
                {.valueName = "N",
                 .showsDefault = true,
                 .range = std::pair(1, std::numeric_limits<int>::max())});
    addArgument(
        command, "-o,--output", options->folder,
        "Folder for the images, made if missing; -: write pixels alone to standard output, image "
        "A above image B",
        {.valueName = "DIR", .showsDefault = true});
    addFlag(command, "--raw", options->raw,
            "Write pixels and 8-byte trailer as delivered, instead of PNG");
    addY4mOption(command, options->y4m);
    addCaptureOptions(command, options->capture);
    return {&command,
            [options](Context& context) {
                return runOnCameras(context, {[&](const CameraPointer& camera, Context& own) {
                                                  return runGrab(camera, own, *options);
                                              },
                                              true, grabRow, framesSum});
            },
            true, [options] { return options->folder; }};
}
