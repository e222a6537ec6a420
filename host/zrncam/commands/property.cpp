#include "client/variants.h"
#include "session.h"
#include "tool_error.h"

#include <QJsonArray>

#include <memory>

using zrn::PropertyInfo;

namespace
{

struct PropertyOptions {
    std::string key;
    std::string value;
};

/// The value in the type that the key wants. An unknown key is left to the driver to refuse.
zrn::Value typedValue(const std::string& key, const std::string& text)
{
    const PropertyInfo* property = zrn::findProperty(key);
    if (!property || !property->writable) {
        return text;
    }
    const std::optional<zrn::Value> value = zrn::parseValue(*property, text);
    if (!value) {
        throw ToolError(ExitCode::Usage, QStringLiteral("%1 takes %2 %3, not \"%4\"")
                                             .arg(QString::fromStdString(key),
                                                  QLatin1String(zrn::typeName(property->type)),
                                                  QString::fromStdString(zrn::rangeText(*property)),
                                                  QString::fromLocal8Bit(text.c_str()))
                                             .simplified());
    }
    return *value;
}

void reportValue(Report& report, const std::string& key, const zrn::Value& value)
{
    const PropertyInfo* property = zrn::findProperty(key);
    report.line(QString::fromStdString(zrn::toText(value)));
    report.json()[QLatin1String("key")] = QString::fromStdString(key);
    report.json()[QLatin1String("value")] = QJsonValue::fromVariant(zrn::toVariant(value));
    if (property && *property->unit) {
        report.json()[QLatin1String("unit")] = QLatin1String(property->unit);
    }
}

ExitCode runGet(Context& context, const PropertyOptions& options)
{
    const CameraPointer camera = Session(context.options).connect();
    reportValue(context.report, options.key, camera->property(options.key));
    return ExitCode::Success;
}

ExitCode runSet(Context& context, const PropertyOptions& options)
{
    const zrn::Value value = typedValue(options.key, options.value);
    const CameraPointer camera = Session(context.options).connect();
    camera->setProperty(options.key, value);
    // What the camera holds now may differ from what it was sent.
    reportValue(context.report, options.key, camera->property(options.key));
    return ExitCode::Success;
}

QJsonObject describe(const PropertyInfo& property)
{
    QJsonObject json{
        {QStringLiteral("key"), QLatin1String(property.key)},
        {QStringLiteral("label"), QLatin1String(property.label)},
        {QStringLiteral("type"), QLatin1String(zrn::typeName(property.type))},
        {QStringLiteral("access"),
         property.writable ? QStringLiteral("read-write") : QStringLiteral("read-only")},
        {QStringLiteral("unit"), QLatin1String(property.unit)},
        {QStringLiteral("meaning"), QLatin1String(property.tip)},
        {QStringLiteral("carrier"), QLatin1String(property.carrier)},
    };
    if (property.minimum != property.maximum) {
        json[QLatin1String("minimum")] = qint64{property.minimum};
        json[QLatin1String("maximum")] = qint64{property.maximum};
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
    const CameraPointer camera = Session(context.options).connect();
    context.report.line(row(QStringLiteral("key"), QStringLiteral("value"), QStringLiteral("type"),
                            QStringLiteral("access"), QStringLiteral("range"),
                            QStringLiteral("unit")));
    QJsonArray list;
    for (const PropertyInfo& property : zrn::Camera::properties()) {
        QJsonObject json = describe(property);
        QString text;
        try {
            const zrn::Value value = camera->property(property.key);
            text = QString::fromStdString(zrn::toText(value));
            json[QLatin1String("value")] = QJsonValue::fromVariant(zrn::toVariant(value));
        } catch (const zrn::Error& error) {
            text = QStringLiteral("(%1 %2)")
                       .arg(static_cast<quint32>(error.code()))
                       .arg(QString::fromStdString(error.name()));
            json[QLatin1String("code")] = static_cast<qint64>(error.code());
        }
        context.report.line(
            row(QLatin1String(property.key), text, QLatin1String(zrn::typeName(property.type)),
                property.writable ? QStringLiteral("rw") : QStringLiteral("r"),
                QString::fromStdString(zrn::rangeText(property)), QLatin1String(property.unit)));
        list.append(json);
    }
    context.report.json()[QLatin1String("properties")] = list;
    return ExitCode::Success;
}

ExitCode runDriverCommand(Context& context, const PropertyOptions& options)
{
    Session(context.options).connect()->run(options.key);
    context.report.line(QStringLiteral("done"));
    context.report.json()[QLatin1String("command")] = QString::fromStdString(options.key);
    return ExitCode::Success;
}

} // namespace

Command addGet(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "get", "Read a property", "get Serial");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "KEY", options->key, "Property key", {.isRequired = true});
    return {&command, [options](Context& context) { return runGet(context, *options); }};
}

Command addSet(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "set", "Write a property and show what the camera holds",
                                      "set Gamma 200");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "KEY", options->key, "Property key", {.isRequired = true});
    addArgument(command, "VALUE", options->value, "New value: a number, or true or false",
                {.isRequired = true});
    return {&command, [options](Context& context) { return runSet(context, *options); }};
}

Command addProperties(CLI::App& app)
{
    return {&addSubcommand(app, "properties", "Show every property with value, type and range",
                           "properties --json"),
            runProperties};
}

Command addDriverCommand(CLI::App& app)
{
    CLI::App& command = addSubcommand(app, "command", "Run a command of the camera: ClearState",
                                      "command ClearState");
    const auto options = std::make_shared<PropertyOptions>();
    addArgument(command, "COMMAND", options->key, "Command key", {.isRequired = true});
    return {&command, [options](Context& context) { return runDriverCommand(context, *options); }};
}
