#include "commands/capture.h"

#include "tool_error.h"

#include <chrono>
#include <limits>

namespace
{

/// Frames per second that the camera announces, or else those that the driver counts; 0: neither.
double nominalRate(zrn::Camera& camera)
{
    const std::chrono::duration<double> period = camera.facts().nominalPeriod;
    if (period.count() > 0) {
        return 1 / period.count();
    }
    try {
        return zrn::numberOf(camera.property(zrn::keys::frameRate));
    } catch (const zrn::Error&) {
        return 0;
    }
}

} // namespace

std::unique_ptr<zrnhost::FramePipe> makePipe(const Context& context, zrn::Camera& camera,
                                             bool isY4m)
{
    using zrnhost::FramePipe;
    if (!context.standardOutput && isY4m) {
        throw ToolError(ExitCode::Usage,
                        QStringLiteral("--y4m is for frames that go to a pipe, with -o -"));
    }
    if (!context.standardOutput) {
        return nullptr;
    }
    return std::make_unique<FramePipe>(context.standardOutput,
                                       isY4m ? FramePipe::Format::Y4m : FramePipe::Format::Pixels,
                                       [&camera] { return nominalRate(camera); });
}

void checkPipe(const zrnhost::FramePipe& pipe)
{
    if (!pipe.failure().isEmpty()) {
        throw ToolError(ExitCode::Output,
                        QStringLiteral("the frames cannot be written: %1").arg(pipe.failure()));
    }
}

void addY4mOption(CLI::App& command, bool& value)
{
    addFlag(command, "--y4m", value, "With -o -: as YUV4MPEG2, which video players read");
}

void addSettingOptions(CLI::App& command, CaptureOptions& options)
{
    addArgument(command, "--exposure", options.exposure,
                "Set the exposure time first: microseconds, or with a unit, as in 2ms",
                {.valueName = "TIME", .unit = Unit::Microseconds});
    addArgument(command, "--gain", options.gain, "Set the gain first", {.valueName = "GAIN"});
    addArgument(command, "--wait", options.waitMilliseconds,
                "Longest wait for one frame: milliseconds, or with a unit, as in 5s (the driver's "
                "default is 1000)",
                {.valueName = "TIME",
                 .unit = Unit::Milliseconds,
                 .range = std::pair(1, std::numeric_limits<int>::max())});
}

void addCaptureOptions(CLI::App& command, CaptureOptions& options)
{
    addSettingOptions(command, options);
    addFlag(command, "--newest", options.newest,
            "Take the newest frame and drop older ones, instead of the oldest first");
}

void applyCaptureOptions(zrn::Camera& camera, const CaptureOptions& options)
{
    if (options.exposure) {
        camera.setExposure(std::chrono::microseconds(*options.exposure));
    }
    if (options.gain) {
        camera.setGain(*options.gain);
    }
    if (options.waitMilliseconds) {
        camera.setProperty(zrn::keys::maxGrabWaitTime, *options.waitMilliseconds);
    }
    camera.setOrder(options.newest ? zrn::FrameOrder::Newest : zrn::FrameOrder::Oldest);
}

QString textOf(const zrn::CameraFacts& camera)
{
    return QStringLiteral("%1, %2 x %3")
        .arg(QString::fromStdString(camera.serial))
        .arg(camera.width)
        .arg(camera.height);
}

QJsonObject jsonOf(const zrn::CameraFacts& camera)
{
    return {{QStringLiteral("serial"), QString::fromStdString(camera.serial)},
            {QStringLiteral("serialNumber"),
             QString::fromStdString(zrn::serialNumberOf(camera.serial))},
            {QStringLiteral("sensorCount"), camera.sensorCount},
            {QStringLiteral("width"), qint64{camera.width}},
            {QStringLiteral("height"), qint64{camera.height}}};
}

QString framesText(qint64 frames, qint64 missing)
{
    return QStringLiteral("%1, %2 missing")
        .arg(countOf(frames, QStringLiteral("frame")))
        .arg(missing);
}

QString framesSum(const std::vector<QJsonObject>& cameras)
{
    int frames = 0;
    int missing = 0;
    for (const QJsonObject& camera : cameras) {
        frames += camera[QLatin1String("frames")].toInt();
        missing += camera[QLatin1String("missing")].toInt();
    }
    return framesText(frames, missing);
}
