#include "session.h"

#include "common/driver_error.h"
#include "common/plugin_locator.h"
#include "tool_error.h"

#include <QCoreApplication>

#include <algorithm>

QString locatePlugin(const GlobalOptions& options)
{
    const auto candidates = zrnhost::pluginCandidates(
        QString::fromLocal8Bit(options.plugin.c_str()), QCoreApplication::applicationDirPath());
    const zrnhost::PluginCandidate chosen = zrnhost::choosePlugin(candidates);
    if (!chosen.path.isEmpty()) {
        return chosen.path;
    }
    QStringList places;
    for (const auto& candidate : candidates) {
        places += candidate.path;
    }
    throw ToolError(ExitCode::Plugin,
                    QStringLiteral("the driver plugin was not found; looked for %1")
                        .arg(places.join(QStringLiteral(", "))),
                    QStringLiteral("name the file with --plugin or %1")
                        .arg(QLatin1String(zrnhost::pluginVariable)));
}

QJsonObject driverJson(zrnhost::DriverPlugin& plugin)
{
    return {{QStringLiteral("name"), plugin.factory().name()},
            {QStringLiteral("version"), plugin.factory().version().toString()},
            {QStringLiteral("path"), plugin.inspection().path}};
}

Session::Session(const GlobalOptions& options)
    : m_options(options)
    , m_plugin(locatePlugin(options))
    , m_opener(m_plugin.factory(), [this] { return m_bus.camerasAndHolders(); })
    , m_search(m_bus, m_opener, options.quiet)
{
}

zrnhost::Camera& Session::connect()
{
    m_camera = connect(choices().front());
    return *m_camera;
}

std::vector<CameraChoice> Session::choices()
{
    if (!m_opener.canChoose()) {
        enumerateAll();
    }
    std::vector<CameraChoice> choices;
    for (const std::string& text : m_options.serials) {
        CameraChoice choice;
        choice.serial = zrnhost::serialFromUser(QString::fromLocal8Bit(text.c_str()));
        const bool isNew =
            std::none_of(choices.begin(), choices.end(), [&choice](const CameraChoice& other) {
                return other.serial == choice.serial;
            });
        if (isNew) {
            choices.push_back(choice);
        }
    }
    if (m_options.all) {
        if (m_opener.canChoose()) {
            for (const std::string& port : m_search.freePorts()) {
                choices.push_back({{}, port, -1});
            }
        } else {
            for (int index = 0; index < m_enumerated; ++index) {
                choices.push_back({{}, {}, index});
            }
        }
    }
    if (choices.empty()) {
        choices.push_back({{}, m_options.port, m_options.index});
    }
    return choices;
}

std::unique_ptr<zrnhost::Camera> Session::connect(const CameraChoice& choice)
{
    if (!m_opener.canChoose()) {
        auto camera = std::make_unique<zrnhost::Camera>(factory());
        connectEnumerated(*camera, choice);
        return camera;
    }
    const QString serial = m_search.find(choice);
    auto camera = std::make_unique<zrnhost::Camera>(factory());
    const ErrorCode result = (*camera)->connectDeviceBySerial(serial);
    if (result != ErrorCode::Success) {
        m_opener.close(serial); // for others
    }
    zrnhost::check(result, QStringLiteral("connecting to the camera with serial %1").arg(serial));
    return camera;
}

bool Session::reconnect(zrnhost::Camera& camera, const QString& serial)
{
    try {
        const bool isThere = m_opener.canChoose() ? m_search.findNow({serial, {}, -1}).has_value()
                                                  : factory().enumDevice() > 0;
        return isThere && camera->connectDeviceBySerial(serial) == ErrorCode::Success;
    } catch (const ToolError&) {
        return false; // it is not on the bus
    }
}

void Session::connectEnumerated(zrnhost::Camera& camera, const CameraChoice& choice) const
{
    if (!choice.port.empty()) {
        throw ToolError(ExitCode::NoCamera,
                        QStringLiteral("this driver cannot open a camera by its port"),
                        QStringLiteral("choose it by --serial or --index"));
    }
    if (!choice.serial.isEmpty()) {
        zrnhost::check(
            camera->connectDeviceBySerial(choice.serial),
            QStringLiteral("connecting to the camera with serial %1").arg(choice.serial));
        return;
    }
    const int index = std::max(choice.index, 0);
    if (index >= m_enumerated) {
        throw ToolError(
            ExitCode::NoCamera,
            QStringLiteral("there is no camera %1; cameras found: %2").arg(index).arg(m_enumerated),
            QStringLiteral("indices begin with 0; 'zrncam list' shows the cameras"));
    }
    zrnhost::check(camera->connectDeviceByIndex(index),
                   QStringLiteral("connecting to camera %1").arg(index));
}

/// For drivers that cannot choose; once, since it closes what is open.
void Session::enumerateAll()
{
    if (m_enumerated < 0) {
        m_enumerated = factory().enumDevice();
    }
    if (m_enumerated < 1) {
        throw noCameraOnBus();
    }
}

RunningStream::RunningStream(zrnhost::Camera& camera, Interrupt& interrupt)
    : m_camera(camera)
    , m_interrupt(interrupt)
{
    zrnhost::check(camera->startStream(0), QStringLiteral("starting the stream"));
    m_interrupt.onRequest(this, [&camera] { camera->stopStream(0); });
}

RunningStream::~RunningStream()
{
    m_interrupt.onRequest(this, {});
    m_camera->stopStream(0);
}
