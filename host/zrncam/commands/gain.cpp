#include "session.h"

#include <memory>
#include <optional>

namespace
{

struct GainOptions {
    std::optional<unsigned short> value;
};

ExitCode runGain(Context& context, const GainOptions& options)
{
    Session session(context.options);
    const CameraPointer camera = session.connect();
    if (options.value) {
        camera->setGain(*options.value);
    }
    const qint64 current = camera->gain();
    const auto range = camera->gainRange();
    const qint64 minimum = range.minimum;
    const qint64 maximum = range.maximum;

    context.report.line(QStringLiteral("%1 (%2 to %3)").arg(current).arg(minimum).arg(maximum));
    QJsonObject& json = context.report.json();
    json[QLatin1String("gain")] = current;
    json[QLatin1String("minimum")] = minimum;
    json[QLatin1String("maximum")] = maximum;
    return ExitCode::Success;
}

} // namespace

Command addGain(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "gain", "Show or set the gain", "gain 40");
    const auto options = std::make_shared<GainOptions>();
    addArgument(command, "VALUE", options->value, "New gain");
    return {&command, [options](Context& context) { return runGain(context, *options); }};
}
