#include "session.h"

#include "common/driver_error.h"
#include "common/plugin_locator.h"
#include "common/usb_bus.h"
#include "tool_error.h"

#include <QCoreApplication>

namespace
{

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

} // namespace

Session::Session(const GlobalOptions& options)
    : m_options(options)
    , m_plugin(locatePlugin(options))
    , m_cameraCount(m_plugin.factory().enumDevice())
{
}

QJsonObject Session::driverJson()
{
    return {{QStringLiteral("name"), factory().name()},
            {QStringLiteral("version"), factory().version().toString()},
            {QStringLiteral("path"), m_plugin.inspection().path}};
}

zrnhost::Camera& Session::connect()
{
    if (m_cameraCount < 1) {
        throw ToolError(ExitCode::NoCamera, QStringLiteral("no camera found"), noCameraHint());
    }
    m_camera = std::make_unique<zrnhost::Camera>(factory());
    zrnhost::Camera& camera = *m_camera;
    if (!m_options.serial.empty()) {
        const QString serial =
            zrnhost::serialFromUser(QString::fromLocal8Bit(m_options.serial.c_str()));
        zrnhost::check(camera->connectDeviceBySerial(serial),
                       QStringLiteral("connecting to the camera with serial %1").arg(serial));
    } else {
        const int index = std::max(m_options.index, 0);
        zrnhost::check(camera->connectDeviceByIndex(index),
                       QStringLiteral("connecting to camera %1").arg(index));
    }
    return camera;
}

QString noCameraHint()
{
    for (const zrnhost::UsbCamera& camera : zrnhost::camerasOnBus(QString())) {
        if (!camera.accessible) {
            return QStringLiteral("a camera is on the bus, but this user may not open %1; put the "
                                  "line %2 into %3, run 'udevadm control --reload' and replug it")
                .arg(camera.nodePath, QLatin1String(zrnhost::udevRule),
                     QLatin1String(zrnhost::udevRulePath));
        }
        return QStringLiteral("a camera is on the bus at %1, but could not be opened; close other "
                              "programs that use it, or see 'zrncam doctor'")
            .arg(camera.nodePath);
    }
    return QStringLiteral("no device %1:%2 is on the bus; check cable and supply")
        .arg(zrnhost::cameraVendorId, 4, 16, QLatin1Char('0'))
        .arg(zrnhost::cameraProductId, 4, 16, QLatin1Char('0'));
}

RunningStream::RunningStream(zrnhost::Camera& camera, Interrupt& interrupt)
    : m_camera(camera)
    , m_interrupt(interrupt)
{
    zrnhost::check(camera->startStream(0), QStringLiteral("starting the stream"));
    m_interrupt.onRequest([&camera] { camera->stopStream(0); });
}

RunningStream::~RunningStream()
{
    m_interrupt.onRequest({});
    m_camera->stopStream(0);
}
