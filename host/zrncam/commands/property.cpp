#include "common/driver_error.h"
#include "common/property_values.h"
#include "common/result_codes.h"
#include "session.h"
#include "tool_error.h"

#include <QJsonArray>

#include <memory>

using zrnhost::check;
using zrnhost::PropertyInfo;

namespace
{

struct PropertyOptions {
    std::string key;
    std::string value;
};

QString fromShell(const std::string& text)
{
    return QString::fromLocal8Bit(text.c_str());
}

/// The value in the type that the key wants. An unknown key is left to the driver to refuse.
QVariant typedValue(const QString& key, const QString& text)
{
    const PropertyInfo* property = zrnhost::findProperty(key.toStdString());
    if (!property || !property->writable) {
        return text;
    }
    const std::optional<QVariant> value = zrnhost::parseValue(*property, text);
    if (!value) {
        throw ToolError(ExitCode::Usage, QStringLiteral("%1 takes %2 %3, not \"%4\"")
                                             .arg(key, QLatin1String(typeName(property->type)),
                                                  zrnhost::rangeText(*property), text)
                                             .simplified());
    }
    return *value;
}

void reportValue(Report& report, const QString& key, const QVariant& value)
{
    const PropertyInfo* property = zrnhost::findProperty(key.toStdString());
    report.line(zrnhost::toText(value));
    report.json()[QLatin1String("key")] = key;
    report.json()[QLatin1String("value")] = zrnhost::toJson(value);
    if (property && *property->unit) {
        report.json()[QLatin1String("unit")] = QLatin1String(property->unit);
    }
}

ExitCode runGet(Context& context, const PropertyOptions& options)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    const QString key = fromShell(options.key);
    reportValue(context.report, key, camera.property(key));
    return ExitCode::Success;
}

ExitCode runSet(Context& context, const PropertyOptions& options)
{
    const QString key = fromShell(options.key);
    const QVariant value = typedValue(key, fromShell(options.value));
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    check(camera.writeProperty(key, value),
          QStringLiteral("setting %1 to %2").arg(key, zrnhost::toText(value)));
    // What the camera holds now may differ from what it was sent.
    reportValue(context.report, key, camera.property(key));
    return ExitCode::Success;
}

QJsonObject describe(const PropertyInfo& property)
{
    QJsonObject json{
        {QStringLiteral("key"), QLatin1String(property.key)},
        {QStringLiteral("label"), QLatin1String(property.label)},
        {QStringLiteral("type"), QLatin1String(zrnhost::typeName(property.type))},
        {QStringLiteral("access"),
         property.writable ? QStringLiteral("read-write") : QStringLiteral("read-only")},
        {QStringLiteral("unit"), QLatin1String(property.unit)},
        {QStringLiteral("meaning"), QLatin1String(property.tip)},
        {QStringLiteral("carrier"), QLatin1String(property.carrier)},
    };
    if (property.minimum != property.maximum) {
        json[QLatin1String("minimum")] = property.minimum;
        json[QLatin1String("maximum")] = property.maximum;
    }
    return json;
}

QString row(const QString& key, const QString& value, const QString& type, const QString& access,
            const QString& range, const QString& unit)
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6")
        .arg(key, -24)
        .arg(value, -28)
        .arg(type, -8)
        .arg(access, -6)
        .arg(range, -16)
        .arg(unit)
        .trimmed();
}

ExitCode runProperties(Context& context)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    context.report.line(row(QStringLiteral("key"), QStringLiteral("value"), QStringLiteral("type"),
                            QStringLiteral("access"), QStringLiteral("range"),
                            QStringLiteral("unit")));
    QJsonArray list;
    for (const PropertyInfo& property : zrnhost::propertyTable) {
        QJsonObject json = describe(property);
        QVariant value;
        const QString key = QString::fromLatin1(property.key);
        const ErrorCode result = camera.readProperty(key, value);
        QString text = zrnhost::toText(value);
        if (result == ErrorCode::Success) {
            json[QLatin1String("value")] = zrnhost::toJson(value);
        } else {
            const zrnhost::ResultCodeInfo* info = zrnhost::findResultCode(result);
            text = QStringLiteral("(%1 %2)")
                       .arg(static_cast<quint32>(result))
                       .arg(QLatin1String(info ? info->name : "Unknown"));
            json[QLatin1String("code")] = static_cast<qint64>(result);
        }
        context.report.line(row(key, text, QLatin1String(zrnhost::typeName(property.type)),
                                property.writable ? QStringLiteral("rw") : QStringLiteral("r"),
                                zrnhost::rangeText(property), QLatin1String(property.unit)));
        list.append(json);
    }
    context.report.json()[QLatin1String("properties")] = list;
    return ExitCode::Success;
}

ExitCode runDriverCommand(Context& context, const PropertyOptions& options)
{
    Session session(context.options);
    zrnhost::Camera& camera = session.connect();
    const QString command = fromShell(options.key);
    check(camera.run(command), QStringLiteral("running the command %1").arg(command));
    context.report.line(QStringLiteral("done"));
    context.report.json()[QLatin1String("command")] = command;
    return ExitCode::Success;
}

} // namespace

Command addGet(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "get", "Read a property");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "KEY", options->key, "Property key", {.isRequired = true});
    return {&command, [options](Context& context) { return runGet(context, *options); }};
}

Command addSet(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "set", "Write a property and show what the camera holds");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "KEY", options->key, "Property key", {.isRequired = true});
    addArgument(command, "VALUE", options->value, "New value: a number, or true or false",
                {.isRequired = true});
    return {&command, [options](Context& context) { return runSet(context, *options); }};
}

Command addProperties(CLI::App& app)
{
    return {&addSubcommand(app, "properties", "Show every property with value, type and range"),
            runProperties};
}

Command addDriverCommand(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "command", "Run a command of the camera: ClearState");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "COMMAND", options->key, "Command key", {.isRequired = true});
    return {&command, [options](Context& context) { return runDriverCommand(context, *options); }};
}
