#include "client/bus_watch.h"
#include "client/random_pause.h"
#include "commands/capture.h"
#include "common/interrupt.h"
#include "session.h"

#include <QJsonArray>
#include <QTime>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>

namespace
{

struct ListOptions {
    bool watch = false;
};

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

QJsonObject jsonOf(const zrn::BusCamera& camera)
{
    QJsonArray holders;
    for (const zrn::Holder& holder : camera.holders) {
        holders.append(
            QJsonObject{{QStringLiteral("pid"), holder.pid},
                        {QStringLiteral("program"), QString::fromStdString(holder.program)}});
    }
    QJsonObject json{{QStringLiteral("port"), QString::fromStdString(camera.port)},
                     {QStringLiteral("node"), QString::fromStdString(camera.node())},
                     {QStringLiteral("megabits"), camera.megabits},
                     {QStringLiteral("accessible"), camera.accessible},
                     {QStringLiteral("use"), QLatin1String(zrn::nameOf(camera.use))},
                     {QStringLiteral("holders"), holders}};
    if (!camera.serial.empty()) {
        json[QLatin1String("serial")] = QString::fromStdString(camera.serial);
        json[QLatin1String("serialNumber")] =
            QString::fromStdString(zrn::serialNumberOf(camera.serial));
    }
    return json;
}

QString lineOf(const zrn::BusCamera& camera)
{
    const QString serial =
        camera.serial.empty() ? QStringLiteral("-") : QString::fromStdString(camera.serial);
    return QStringLiteral("%1 %2  %3 %4 %5")
        .arg(QString::fromStdString(camera.port), -7)
        .arg(QString::fromStdString(camera.node()))
        .arg(serial, -22)
        .arg(QString::fromStdString(camera.speed()), -10)
        .arg(useText(camera));
}

/// Makes the serials known that are not yet. Whoever holds such a camera may only be looking at it
/// for a moment.
void readSerials(zrn::Driver& driver)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds patience(1);
    std::optional<Clock::time_point> end;
    for (;;) {
        for (const zrn::BusCamera& camera : driver.bus().camerasAndHolders()) {
            if (camera.serial.empty() && camera.accessible && camera.use != zrn::Use::Held) {
                // Nothing comes of it when another program was quicker.
                const std::string serial = driver.open(camera);
                if (!serial.empty()) {
                    driver.close(serial);
                }
            }
        }
        const std::vector<zrn::BusCamera> cameras = driver.bus().cameras();
        const bool isDone = std::ranges::none_of(cameras, [](const zrn::BusCamera& camera) {
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
ExitCode listBus(Context& context, zrn::Driver& driver)
{
    const zrn::BusReaders& bus = driver.bus();
    readSerials(driver);
    const std::vector<zrn::BusCamera> cameras = bus.camerasAndHolders();
    QJsonArray list;
    for (int index = 0; index < static_cast<int>(cameras.size()); ++index) {
        const zrn::BusCamera& camera = cameras[static_cast<std::size_t>(index)];
        context.report.line(QStringLiteral("%1  %2").arg(index).arg(lineOf(camera)));
        QJsonObject json = jsonOf(camera);
        json[QLatin1String("index")] = index;
        list.append(json);
    }
    context.report.json()[QLatin1String("cameras")] = list;
    if (cameras.empty()) {
        throw zrn::noCameraOnBus();
    }
    for (const zrn::BusCamera& camera : cameras) {
        if (!camera.accessible) {
            throw zrn::refusalOf(camera);
        }
    }
    return ExitCode::Success;
}

/// The camera as the bus has it now, with its holders and, where it can be read, its serial.
std::optional<zrn::BusCamera> lookAgain(zrn::Driver& driver, const zrn::BusCamera& camera)
{
    if (camera.serial.empty() && camera.accessible) {
        readSerials(driver);
    }
    for (const zrn::BusCamera& now : driver.bus().camerasAndHolders()) {
        if (now.place() == camera.place()) {
            return now;
        }
    }
    return std::nullopt;
}

/// Tells what happens on the bus until the user has seen enough, first of the cameras that are
/// there.
ExitCode watchBus(Context& context, zrn::Driver& driver)
{
    constexpr std::chrono::hours patience(1);
    std::map<std::string, QString> shown; // by place
    zrn::BusWatch watch(driver.bus());
    const zrnhost::InterruptAction stopping(context.interrupt, [&watch] { watch.stop(); });
    const auto tell = [&context](const char* event, const zrn::BusCamera& camera,
                                 const QString& line) {
        QJsonObject json = jsonOf(camera);
        json[QLatin1String("event")] = QLatin1String(event);
        context.report.event(QStringLiteral("%1  %2 %3")
                                 .arg(QTime::currentTime().toString(Qt::ISODate))
                                 .arg(QLatin1String(event), -8)
                                 .arg(line),
                             json);
    };
    while (!context.interrupt.requested()) {
        const std::optional<zrn::BusEvent> event = watch.next(patience);
        if (!event) {
            continue;
        }
        if (event->kind == zrn::BusEvent::Kind::Left) {
            shown.erase(event->camera.place());
            tell("left", event->camera,
                 QString::fromStdString(event->camera.port + ' ' + event->camera.serial));
        } else if (const auto camera = lookAgain(driver, event->camera)) {
            QString& line = shown[camera->place()];
            if (line != lineOf(*camera)) {
                const char* const happened = line.isEmpty() ? "arrived" : "changed";
                line = lineOf(*camera);
                tell(happened, *camera, line);
            }
        }
    }
    return ExitCode::Interrupted;
}

/// For drivers that can only enumerate all.
ExitCode listEnumerated(Context& context, const std::shared_ptr<zrn::Driver>& driver)
{
    const int count = driver->openAllOnce();
    QJsonArray cameras;
    ExitCode exitCode = ExitCode::Success;
    for (int index = 0; index < count; ++index) {
        QJsonObject entry{{QStringLiteral("index"), index}};
        try {
            const zrn::CameraFacts facts = zrn::Camera::open(driver, {{}, {}, index})->facts();
            const QJsonObject fields = ::jsonOf(facts);
            for (auto field = fields.begin(); field != fields.end(); ++field) {
                entry[field.key()] = field.value();
            }
            context.report.line(QStringLiteral("%1  %2").arg(index).arg(textOf(facts)));
        } catch (const zrn::Error& error) {
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
        throw zrn::noCameraOnBus();
    }
    return exitCode;
}

ExitCode runList(Context& context, const ListOptions& options)
{
    const std::shared_ptr<zrn::Driver> driver = loadDriver(context.options);
    if (options.watch) {
        return watchBus(context, *driver);
    }
    context.report.json()[QLatin1String("driver")] = driverJson(*driver);
    return driver->canChoose() ? listBus(context, *driver) : listEnumerated(context, driver);
}

} // namespace

Command addList(CLI::App& app)
{
    CLI::App& command = addSubcommand(
        app, "list", "List the cameras on the bus: port, device node, serial, speed, use",
        "list --watch");
    const auto options = std::make_shared<ListOptions>();
    addFlag(command, "--watch", options->watch,
            "Go on and tell which cameras arrive, leave and change, until Ctrl-C");
    return {&command, [options](Context& context) { return runList(context, *options); }};
}
