#include "client/random_pause.h"
#include "commands/capture.h"
#include "common/driver_error.h"
#include "session.h"
#include "tool_error.h"

#include <QJsonArray>

#include <algorithm>
#include <chrono>
#include <optional>

namespace
{

const char* nameOf(zrn::Use use)
{
    switch (use) {
    case zrn::Use::Free:
        return "free";
    case zrn::Use::Open:
        return "open";
    case zrn::Use::Held:
        break;
    }
    return "held";
}

QString useText(const zrn::BusCamera& camera)
{
    const QString holders = QString::fromStdString(camera.holderText());
    if (!camera.accessible) {
        return QStringLiteral("no permission");
    }
    switch (camera.use) {
    case zrn::Use::Free:
        return QStringLiteral("free");
    case zrn::Use::Open:
        return QStringLiteral("free, opened by %1").arg(holders);
    case zrn::Use::Held:
        break;
    }
    return QStringLiteral("in use by %1").arg(holders);
}

QJsonObject jsonOf(const zrn::BusCamera& camera, int index)
{
    QJsonArray holders;
    for (const zrn::Holder& holder : camera.holders) {
        holders.append(
            QJsonObject{{QStringLiteral("pid"), holder.pid},
                        {QStringLiteral("program"), QString::fromStdString(holder.program)}});
    }
    QJsonObject json{{QStringLiteral("index"), index},
                     {QStringLiteral("port"), QString::fromStdString(camera.port)},
                     {QStringLiteral("node"), QString::fromStdString(camera.node())},
                     {QStringLiteral("megabits"), camera.megabits},
                     {QStringLiteral("accessible"), camera.accessible},
                     {QStringLiteral("use"), QLatin1String(nameOf(camera.use))},
                     {QStringLiteral("holders"), holders}};
    if (!camera.serial.empty()) {
        const QString serial = QString::fromStdString(camera.serial);
        json[QLatin1String("serial")] = serial;
        json[QLatin1String("serialNumber")] = zrnhost::serialNumberOf(serial);
    }
    return json;
}

QString lineOf(const zrn::BusCamera& camera, int index)
{
    const QString serial =
        camera.serial.empty() ? QStringLiteral("-") : QString::fromStdString(camera.serial);
    return QStringLiteral("%1  %2 %3  %4 %5 %6")
        .arg(index)
        .arg(QString::fromStdString(camera.port), -7)
        .arg(QString::fromStdString(camera.node()))
        .arg(serial, -22)
        .arg(QString::fromStdString(camera.speed()), -10)
        .arg(useText(camera));
}

/// Opens a camera for its serial; nothing comes of it when another program was quicker.
void readSerial(zrn::Bus& bus, const zrn::BusCamera& camera, const QString& plugin)
{
    // Unloading the driver closes the camera.
    zrnhost::DriverPlugin driver(plugin);
    zrnhost::DeviceOpener opener(driver.factory(), [&bus] { return bus.camerasAndHolders(); });
    bus.remember(camera, opener.open(camera).toStdString());
}

/// Makes the serials known that are not yet. Whoever holds such a camera may only be looking at it
/// for a moment.
void readSerials(zrn::Bus& bus, const QString& plugin)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds patience(1);
    std::optional<Clock::time_point> end;
    for (;;) {
        for (const zrn::BusCamera& camera : bus.camerasAndHolders()) {
            if (camera.serial.empty() && camera.accessible && camera.use != zrn::Use::Held) {
                readSerial(bus, camera, plugin);
            }
        }
        const std::vector<zrn::BusCamera> cameras = bus.cameras();
        const bool isDone =
            std::none_of(cameras.begin(), cameras.end(), [](const zrn::BusCamera& camera) {
                return camera.serial.empty() && camera.accessible;
            });
        end = end.value_or(Clock::now() + patience);
        if (isDone || Clock::now() > *end) {
            return;
        }
        zrn::pauseAtRandom();
    }
}

/// What the kernel shows, and of free cameras the serial: each is opened by itself for that, unless
/// it has been before.
ExitCode listBus(Context& context, const QString& plugin)
{
    zrn::Bus bus;
    readSerials(bus, plugin);
    const std::vector<zrn::BusCamera> cameras = bus.camerasAndHolders();
    QJsonArray list;
    for (int index = 0; index < static_cast<int>(cameras.size()); ++index) {
        const zrn::BusCamera& camera = cameras[static_cast<std::size_t>(index)];
        context.report.line(lineOf(camera, index));
        list.append(jsonOf(camera, index));
    }
    context.report.json()[QLatin1String("cameras")] = list;
    if (cameras.empty()) {
        throw noCameraOnBus();
    }
    for (const zrn::BusCamera& camera : cameras) {
        if (!camera.accessible) {
            throw refusalOf(camera);
        }
    }
    return ExitCode::Success;
}

/// For drivers that can only enumerate all.
ExitCode listEnumerated(Context& context, zrnhost::DriverPlugin& plugin)
{
    const int count = plugin.factory().enumDevice();
    QJsonArray cameras;
    ExitCode exitCode = ExitCode::Success;
    for (int index = 0; index < count; ++index) {
        QJsonObject entry{{QStringLiteral("index"), index}};
        try {
            zrnhost::Camera camera(plugin.factory());
            zrnhost::check(camera->connectDeviceByIndex(index),
                           QStringLiteral("connecting to camera %1").arg(index));
            const CameraIdentity identity = identify(camera);
            const QJsonObject fields = identity.json();
            for (auto field = fields.begin(); field != fields.end(); ++field) {
                entry[field.key()] = field.value();
            }
            context.report.line(QStringLiteral("%1  %2").arg(index).arg(identity.text()));
        } catch (const zrnhost::DriverError& error) {
            // One broken camera must not hide the others.
            entry[QLatin1String("error")] = QString::fromUtf8(error.what());
            entry[QLatin1String("code")] = static_cast<int>(error.code());
            context.report.line(
                QStringLiteral("%1  %2").arg(index).arg(QString::fromUtf8(error.what())));
            exitCode = ExitCode::Refused;
        }
        cameras.append(entry);
    }
    context.report.json()[QLatin1String("cameras")] = cameras;
    if (count < 1) {
        throw noCameraOnBus();
    }
    return exitCode;
}

ExitCode runList(Context& context)
{
    const QString path = locatePlugin(context.options);
    {
        zrnhost::DriverPlugin plugin(path);
        context.report.json()[QLatin1String("driver")] = driverJson(plugin);
        if (!zrnhost::DeviceOpener(plugin.factory(), {}).canChoose()) {
            return listEnumerated(context, plugin);
        }
    }
    return listBus(context, path);
}

} // namespace

Command addList(CLI::App& app)
{
    return {&addSubcommand(app, "list",
                           "List the cameras on the bus: port, device node, serial, speed, use"),
            runList};
}
