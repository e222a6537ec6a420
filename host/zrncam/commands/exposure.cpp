#include "session.h"

#include <memory>
#include <optional>

namespace
{

struct ExposureOptions {
    std::optional<unsigned int> value;
};

ExitCode runExposure(Context& context, const ExposureOptions& options)
{
    Session session(context.options);
    const CameraPointer camera = session.connect();
    if (options.value) {
        camera->setExposure(std::chrono::microseconds(*options.value));
    }
    const qint64 current = camera->exposure().count();
    const auto range = camera->exposureRange();
    const qint64 minimum = range.minimum.count();
    const qint64 maximum = range.maximum.count();

    context.report.line(QStringLiteral("%1 us (%2 to %3)").arg(current).arg(minimum).arg(maximum));
    QJsonObject& json = context.report.json();
    if (options.value) {
        json[QLatin1String("requested")] = qint64{*options.value};
    }
    if (options.value && *options.value != current) {
        context.report.line(QStringLiteral("the camera has made %1 us of %2 us: it counts in steps")
                                .arg(current)
                                .arg(*options.value));
    }
    json[QLatin1String("exposure")] = current;
    json[QLatin1String("minimum")] = minimum;
    json[QLatin1String("maximum")] = maximum;
    json[QLatin1String("unit")] = QStringLiteral("us");
    return ExitCode::Success;
}

} // namespace

Command addExposure(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "exposure", "Show or set the exposure time", "exposure 2ms");
    const auto options = std::make_shared<ExposureOptions>();
    addArgument(command, "VALUE", options->value,
                "New exposure time: microseconds, or with a unit, as in 2ms",
                {.unit = Unit::Microseconds});
    return {&command, [options](Context& context) { return runExposure(context, *options); }};
}
