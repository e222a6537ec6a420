#include "client/error.h"
#include "client/recording.h"
#include "common/image_writer.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace
{

using zrn::Error;
using zrn::Frame;
using zrn::Recording;

constexpr int exitUsage = 2;

struct Options {
    std::string path;
    std::string folder = ".";
    int first = 0;
    int count = -1;
    bool raw = false;
};

void printLine(const QString& line)
{
    std::fputs(qUtf8Printable(line + QLatin1Char('\n')), stdout);
}

QJsonObject metadataOf(const Recording& recording)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(recording.metadata())).object();
}

int showInfo(const Options& options)
{
    const Recording recording(options.path);
    quint64 missing = 0;
    for (int position = 1; position < recording.frameCount(); ++position) {
        missing += recording.header(position).missing;
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
                          {QStringLiteral("metadata"), metadataOf(recording)},
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
    printLine(
        QStringLiteral("%1 frames, %2 damaged%3")
            .arg(recording.frameCount())
            .arg(damaged.size())
            .arg(recording.isComplete() ? QString() : QStringLiteral(", cut off at the end")));
    return damaged.empty() && recording.isComplete() ? EXIT_SUCCESS : EXIT_FAILURE;
}

void exportFrame(const Options& options, const QJsonObject& metadata, int position,
                 const Frame& frame)
{
    for (const zrn::Image& image : frame.images()) {
        const QString path = QStringLiteral("%1/%2_%3_%4.%5")
                                 .arg(QString::fromLocal8Bit(options.folder.c_str()))
                                 .arg(position, 6, 10, QLatin1Char('0'))
                                 .arg(frame.step.number)
                                 .arg(QLatin1Char(image.letter))
                                 .arg(options.raw ? QStringLiteral("raw") : QStringLiteral("png"));
        const QString problem =
            options.raw
                ? zrnhost::writeRaw(path, image)
                : zrnhost::writePng(
                      path, image, frame.width, frame.height,
                      {{QStringLiteral("Serial"), metadata[QLatin1String("serial")].toString()},
                       {QStringLiteral("Image"), QString(QLatin1Char(image.letter))},
                       {QStringLiteral("Frame number"), QString::number(frame.step.number)},
                       {QStringLiteral("Arrival"),
                        QStringLiteral("%1 ns").arg(
                            std::chrono::nanoseconds(frame.arrival.time_since_epoch()).count())}});
        if (!problem.isEmpty()) {
            throw Error(Error::Kind::Recording, "NotWritable", problem.toStdString());
        }
    }
}

int exportFrames(const Options& options)
{
    const Recording recording(options.path);
    if (!QDir().mkpath(QString::fromLocal8Bit(options.folder.c_str()))) {
        throw Error(Error::Kind::Recording, "NotWritable",
                    "the folder " + options.folder + " cannot be made");
    }
    const int available = std::max(recording.frameCount() - options.first, 0);
    const int count = options.count < 0 ? available : std::min(options.count, available);
    for (int position = options.first; position < options.first + count; ++position) {
        exportFrame(options, metadataOf(recording), position, recording.frame(position));
    }
    printLine(QStringLiteral("%1 frames exported").arg(count));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
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
    CLI::App* images = addCommand("export", "Write the images as files");
    images->add_option("-o,--output", options.folder, "Folder to write to")->type_name("DIR");
    images->add_option("--first", options.first, "Frame to start with, from 0")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    images->add_option("-n,--count", options.count, "How many frames (default: all)")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    images->add_flag("--raw", options.raw, "Pixels and trailer instead of PNG");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : exitUsage;
    }
    try {
        const int exitCode = info->parsed()    ? showInfo(options)
                             : check->parsed() ? verify(options)
                                               : exportFrames(options);
        if (std::fflush(stdout) != 0) {
            std::fprintf(stderr, "zrnrec: the result cannot be written: %s\n",
                         std::strerror(errno));
            return EXIT_FAILURE;
        }
        return exitCode;
    } catch (const Error& error) {
        std::fprintf(stderr, "zrnrec: %s\n", error.what());
        return EXIT_FAILURE;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zrnrec: %s: too little memory for its frames\n",
                     options.path.c_str());
        return EXIT_FAILURE;
    }
}
