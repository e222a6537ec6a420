#include "common/driver_error.h"
#include "session.h"

#include <memory>
#include <optional>

using zrnhost::check;

namespace
{

struct GainOptions {
    std::optional<unsigned short> value;
};

ExitCode runGain(Context& context, const GainOptions& options)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    if (options.value) {
        check(camera->setGain(*options.value, 0),
              QStringLiteral("setting the gain to %1").arg(*options.value));
    }
    unsigned short current = 0;
    check(camera->getGain(current, 0), QStringLiteral("reading the gain"));
    unsigned short minimum = 0;
    unsigned short maximum = 0;
    check(camera->getGainRange(minimum, maximum, 0), QStringLiteral("reading the gain range"));

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
    CLI::App& command = addSubcommand(app, "gain", "Show or set the gain");
    const auto options = std::make_shared<GainOptions>();
    addArgument(command, "VALUE", options->value, "New gain");
    return {&command, [options](Context& context) { return runGain(context, *options); }};
}
