#include "checks/images.h"
#include "common/image_writer.h"
#include "recording/recording_reader.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QDir>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

namespace
{

using zrnrecording::Frame;
using zrnrecording::RecordingError;
using zrnrecording::RecordingReader;

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

int showInfo(const Options& options)
{
    const RecordingReader reader(QString::fromLocal8Bit(options.path.c_str()));
    quint64 missing = 0;
    for (int position = 1; position < reader.frameCount(); ++position) {
        missing += reader.header(position).missing;
    }
    printLine(QString::fromUtf8(
                  QJsonDocument(
                      QJsonObject{
                          {QStringLiteral("frames"), reader.frameCount()},
                          {QStringLiteral("missing"), static_cast<qint64>(missing)},
                          {QStringLiteral("seconds"),
                           static_cast<double>(reader.durationNanoseconds()) * 1e-9},
                          {QStringLiteral("bytes"), static_cast<qint64>(reader.bytes())},
                          {QStringLiteral("complete"), reader.isComplete()},
                          {QStringLiteral("lostBytes"), static_cast<qint64>(reader.lostBytes())},
                          {QStringLiteral("metadata"), reader.metadata()},
                      })
                      .toJson())
                  .trimmed());
    return EXIT_SUCCESS;
}

int verify(const Options& options)
{
    const RecordingReader reader(QString::fromLocal8Bit(options.path.c_str()));
    int damaged = 0;
    for (int position = 0; position < reader.frameCount(); ++position) {
        try {
            reader.frame(position);
        } catch (const RecordingError& error) {
            std::fprintf(stderr, "%s\n", error.what());
            ++damaged;
        }
    }
    printLine(QStringLiteral("%1 frames, %2 damaged%3")
                  .arg(reader.frameCount())
                  .arg(damaged)
                  .arg(reader.isComplete() ? QString() : QStringLiteral(", cut off at the end")));
    return damaged == 0 && reader.isComplete() ? EXIT_SUCCESS : EXIT_FAILURE;
}

void exportFrame(const Options& options, const QJsonObject& metadata, int position,
                 const Frame& frame)
{
    for (const zrnrecording::Image& image : frame.images) {
        const zrn::Image written{image.letter,
                                 {reinterpret_cast<const std::uint8_t*>(image.data.constData()),
                                  static_cast<std::size_t>(image.data.size())}};
        const QString path = QStringLiteral("%1/%2_%3_%4.%5")
                                 .arg(QString::fromLocal8Bit(options.folder.c_str()))
                                 .arg(position, 6, 10, QLatin1Char('0'))
                                 .arg(frame.number)
                                 .arg(QLatin1Char(image.letter))
                                 .arg(options.raw ? QStringLiteral("raw") : QStringLiteral("png"));
        const QString problem =
            options.raw
                ? zrnhost::writeRaw(path, written)
                : zrnhost::writePng(
                      path, written, static_cast<quint32>(frame.width),
                      static_cast<quint32>(frame.height),
                      {{QStringLiteral("Serial"), metadata[QLatin1String("serial")].toString()},
                       {QStringLiteral("Image"), QString(QLatin1Char(image.letter))},
                       {QStringLiteral("Frame number"), QString::number(frame.number)},
                       {QStringLiteral("Arrival"),
                        QStringLiteral("%1 ns").arg(frame.arrivalNanoseconds)}});
        if (!problem.isEmpty()) {
            throw RecordingError(problem);
        }
    }
}

int exportFrames(const Options& options)
{
    const RecordingReader reader(QString::fromLocal8Bit(options.path.c_str()));
    if (!QDir().mkpath(QString::fromLocal8Bit(options.folder.c_str()))) {
        throw RecordingError(QStringLiteral("the folder %1 cannot be made")
                                 .arg(QString::fromLocal8Bit(options.folder.c_str())));
    }
    const int available = std::max(reader.frameCount() - options.first, 0);
    const int count = options.count < 0 ? available : std::min(options.count, available);
    for (int position = options.first; position < options.first + count; ++position) {
        exportFrame(options, reader.metadata(), position, reader.frame(position));
    }
    printLine(QStringLiteral("%1 frames exported").arg(count));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Reads recordings of ZRN USB cameras.", "zrnrec");
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
        return info->parsed()    ? showInfo(options)
               : check->parsed() ? verify(options)
                                 : exportFrames(options);
    } catch (const RecordingError& error) {
        std::fprintf(stderr, "zrnrec: %s\n", error.what());
        return EXIT_FAILURE;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zrnrec: %s: too little memory for its frames\n",
                     options.path.c_str());
        return EXIT_FAILURE;
    }
}
