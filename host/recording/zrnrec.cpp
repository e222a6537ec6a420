#include "client/error.h"
#include "client/recording.h"
#include "common/date_text.h"
#include "recording/exporter.h"
#include "recording/formats.h"
#include "recording/frame_facts.h"
#include "recording/pairing.h"
#include "recording/stack_info.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace
{

using zrn::Error;
using zrn::Recording;

constexpr int exitUsage = 2;
constexpr double nanosecond = 1e-6; ///< milliseconds
constexpr double hour = 3'600'000;

struct Options {
    std::string path;
    std::string target;
    std::string format = "png";
    std::string codec = "ffv1";
    std::string images; ///< a letter; empty: all
    int first = 0;
    int count = std::numeric_limits<int>::max();
    int every = 1;
    bool raw = false;
    zrnrec::PairRequest pairs;
};

void printLine(const QString& line)
{
    std::fputs(qUtf8Printable(line + QLatin1Char('\n')), stdout);
}

/// The date of the first frame that can be read; null where the recording does not tell.
QJsonValue beginOf(const Recording& recording)
{
    for (int position = 0; position < recording.frameCount(); ++position) {
        try {
            const auto utc = zrnrec::factsOf(recording, position, recording.view(position)).utc;
            return utc ? QJsonValue(QString::fromStdString(zrnhost::dateText(*utc))) : QJsonValue();
        } catch (const Error&) {
            continue; // the next one may be whole
        }
    }
    return {};
}

/// Frame numbers; 0 where its header is damaged.
std::uint32_t missingBefore(const Recording& recording, int position)
{
    try {
        return recording.header(position).missing;
    } catch (const Error&) {
        return 0;
    }
}

int showInfo(const Options& options)
{
    const Recording recording(options.path);
    const zrnrec::RecordingFacts facts = zrnrec::factsOf(recording, options.path);
    quint64 missing = 0;
    for (int position = 1; position < recording.frameCount(); ++position) {
        missing += missingBefore(recording, position);
    }
    printLine(QString::fromUtf8(
                  QJsonDocument(
                      QJsonObject{
                          {QStringLiteral("frames"), recording.frameCount()},
                          {QStringLiteral("missing"), static_cast<qint64>(missing)},
                          {QStringLiteral("seconds"),
                           std::chrono::duration<double>(recording.duration()).count()},
                          {QStringLiteral("bytes"), static_cast<qint64>(recording.bytes())},
                          {QStringLiteral("complete"), recording.isComplete()},
                          {QStringLiteral("lostBytes"), static_cast<qint64>(recording.lostBytes())},
                          {QStringLiteral("version"), recording.version()},
                          {QStringLiteral("begin"), beginOf(recording)},
                          {QStringLiteral("metadata"), facts.metadata},
                          {QStringLiteral("notes"), zrnrec::toJson(facts.notes)},
                          {QStringLiteral("stacks"),
                           stackInfo(recording, QFile::decodeName(options.path.c_str()))},
                      })
                      .toJson())
                  .trimmed());
    return EXIT_SUCCESS;
}

int verify(const Options& options)
{
    const Recording recording(options.path);
    const std::map<int, std::string> damaged = recording.damage();
    for (const auto& [position, why] : damaged) {
        std::fprintf(stderr, "%s\n", why.c_str());
    }
    const std::vector<std::string> others = recording.otherDamage();
    for (const std::string& why : others) {
        std::fprintf(stderr, "%s\n", why.c_str());
    }
    printLine(
        QStringLiteral("%1 frames, %2 damaged%3")
            .arg(recording.frameCount())
            .arg(damaged.size())
            .arg(recording.isComplete() ? QString() : QStringLiteral(", cut off at the end")));
    const bool isWhole = damaged.empty() && others.empty() && recording.isComplete();
    return isWhole ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// The way to write that the options ask for. @throws Error
zrnrec::ExportFormat formatOf(const Options& options)
{
    if (options.raw) {
        return {"", "", zrnrec::ExportFormat::Takes::Anything, zrnrec::makeImageFolder, ""};
    }
    const auto& formats = zrnrec::exportFormats();
    const auto format = std::ranges::find(formats, options.format, &zrnrec::ExportFormat::name);
    if (!format->make) {
        throw Error(Error::Kind::Recording, "NotBuilt",
                    "this zrnrec writes no " + format->name + ": it was built without " +
                        format->package);
    }
    return *format;
}

int exportFrames(const Options& options)
{
    const zrnhost::Interrupt interrupt;
    zrnhost::Progress progress(false);
    zrnrec::ExportRequest request;
    request.recording = options.path;
    request.target = options.target;
    request.format = formatOf(options);
    request.codec = options.codec == "h264" ? zrnrec::VideoCodec::H264 : zrnrec::VideoCodec::Ffv1;
    request.first = options.first;
    request.every = options.every;
    request.count = options.count;
    request.letter = options.images.empty() ? '\0' : options.images.front();
    const zrnrec::ExportResult result = zrnrec::exportRecording(request, interrupt, progress);

    const bool isFolder = request.format.suffix.empty();
    if (!isFolder && (request.target.empty() || result.files.size() > 1)) {
        for (const std::string& file : result.files) {
            printLine(QString::fromLocal8Bit(file.c_str()));
        }
    }
    QString summary = QStringLiteral("%1 frames exported").arg(result.frames);
    if (result.damaged > 0) {
        summary += QStringLiteral(", %1 damaged").arg(result.damaged);
    }
    if (result.without > 0) {
        summary += QStringLiteral(", %1 without image %2")
                       .arg(result.without)
                       .arg(QString::fromStdString(options.images));
    }
    printLine(summary);
    if (result.isInterrupted) {
        progress.note(QStringLiteral("zrnrec: interrupted%1")
                          .arg(isFolder ? QString()
                                        : QStringLiteral("; the file that was begun is removed")));
        return zrnhost::Interrupt::exitStatus;
    }
    if (result.files.empty()) {
        progress.note(QStringLiteral("zrnrec: there is nothing to write a file of"));
    }
    const bool isWhole = result.damaged == 0 && !result.isDamagedElsewhere;
    return isWhole && !result.files.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int pairFrames(const Options& options)
{
    const QJsonObject told = zrnrec::pairRecordings(options.pairs);
    printLine(QString::fromUtf8(QJsonDocument(told).toJson()).trimmed());
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGXFSZ, SIG_IGN); // an error of the write instead, which removes what was begun
    CLI::App app("Reads recordings of ZRN USB cameras.", "zrnrec");
    app.set_version_flag("--version", "zrnrec " ZRN_VERSION);
    app.require_subcommand(1);
    Options options;
    const auto addCommand = [&app, &options](const char* name, const char* description) {
        CLI::App* command = app.add_subcommand(name, description);
        command->add_option("recording", options.path, "Recording to read")
            ->required()
            ->type_name("FILE");
        return command;
    };
    CLI::App* info = addCommand("info", "Print what the recording holds, as JSON");
    CLI::App* check = addCommand("verify", "Read every frame; fails if one is damaged");
    CLI::App* images = addCommand("export", "Write frames for other programs");
    images
        ->add_option("-o,--output", options.target,
                     "File to write, or folder for png (default: in the current folder)")
        ->type_name("TARGET");
    std::vector<std::string> formats;
    std::ranges::transform(zrnrec::exportFormats(), std::back_inserter(formats),
                           &zrnrec::ExportFormat::name);
    CLI::Option* const to =
        images->add_option("--to", options.format, "What to write (default: png)")
            ->check(CLI::IsMember(formats));
    images->add_option("--first", options.first, "Frame to start with, from 0")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    images->add_option("-n,--count", options.count, "How many frames (default: all)")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    images->add_option("--every", options.every, "Only each N-th frame")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->type_name("N");
    images->add_option("--images", options.images, "Only these images of each frame")
        ->check(CLI::IsMember({"A", "B"}));
    images->add_option("--codec", options.codec, "Of mkv: lossless, or small (default: ffv1)")
        ->check(CLI::IsMember({"ffv1", "h264"}));
    images->add_flag("--raw", options.raw, "Pixels and trailer of each image instead of PNG")
        ->excludes(to);
    CLI::App* pairs =
        app.add_subcommand("pair", "Find the frames of several cameras that belong together");
    pairs->add_option("recordings", options.pairs.recordings, "Recordings of two or more cameras")
        ->required()
        ->type_name("FILE...");
    pairs
        ->add_option("-o,--output", options.pairs.table,
                     "Table of the pairs to write, as CSV (default: none)")
        ->type_name("TABLE");
    pairs
        ->add_option("--within", options.pairs.withinMilliseconds,
                     "Milliseconds that frames of a pair may lie apart (default: half a period)")
        ->check([](const std::string& text) {
            const double value = std::strtod(text.c_str(), nullptr);
            return value >= nanosecond && value <= hour
                       ? std::string()
                       : "'" + text + "' is not between a nanosecond and an hour";
        })
        ->type_name("MS");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    }
    try {
        const int exitCode = info->parsed()    ? showInfo(options)
                             : check->parsed() ? verify(options)
                             : pairs->parsed() ? pairFrames(options)
                                               : exportFrames(options);
        if (std::fflush(stdout) != 0) {
            std::fprintf(stderr, "zrnrec: the result cannot be written: %s\n",
                         std::strerror(errno));
            return EXIT_FAILURE;
        }
        return exitCode;
    } catch (const Error& error) {
        std::fprintf(stderr, "zrnrec: %s\n", error.what());
        if (!error.remedy().empty()) {
            std::fprintf(stderr, "        %s\n", error.remedy().c_str());
        }
        return EXIT_FAILURE;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zrnrec: %s: too little memory for its frames\n",
                     options.path.c_str());
        return EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zrnrec: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
