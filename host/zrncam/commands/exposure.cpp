#include "common/driver_error.h"
#include "session.h"

#include <memory>
#include <optional>

using zrnhost::check;

namespace
{

struct ExposureOptions {
    std::optional<unsigned int> value;
};

ExitCode runExposure(Context& context, const ExposureOptions& options)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    if (options.value) {
        check(camera->setExposureTime(*options.value, 0),
              QStringLiteral("setting the exposure time to %1").arg(*options.value));
    }
    unsigned int current = 0;
    check(camera->getExposureTime(current, 0), QStringLiteral("reading the exposure time"));
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    check(camera->getExposureTimeRange(minimum, maximum, 0),
          QStringLiteral("reading the exposure range"));

    context.report.line(QStringLiteral("%1 us (%2 to %3)").arg(current).arg(minimum).arg(maximum));
    QJsonObject& json = context.report.json();
    json[QLatin1String("exposure")] = static_cast<qint64>(current);
    json[QLatin1String("minimum")] = static_cast<qint64>(minimum);
    json[QLatin1String("maximum")] = static_cast<qint64>(maximum);
    json[QLatin1String("unit")] = QStringLiteral("us");
    return ExitCode::Success;
}

} // namespace

Command addExposure(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "exposure", "Show or set the exposure time");
    const auto options = std::make_shared<ExposureOptions>();
    addArgument(command, "VALUE", options->value, "New exposure time, microseconds");
    return {&command, [options](Context& context) { return runExposure(context, *options); }};
}
