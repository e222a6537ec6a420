#include "common/driver_plugin.h"

#include <QFileInfo>
#include <QJsonObject>

namespace zrnhost
{
namespace
{

/// The metadata stores major and minor of the Qt version as 0x050f00.
QString versionText(int packed)
{
    return QStringLiteral("%1.%2").arg(packed >> 16).arg((packed >> 8) & 0xff);
}

bool builtForOtherQt(int packed)
{
    const int major = packed >> 16;
    const int minor = (packed >> 8) & 0xff;
    return major != QT_VERSION_MAJOR || minor > QT_VERSION_MINOR;
}

} // namespace

PluginInspection inspectPlugin(const QString& path)
{
    PluginInspection result;
    result.path = path;
    const auto refuse = [&result](PluginFault fault, const QString& message) {
        result.fault = fault;
        result.message = message;
        return result;
    };

    if (!QFileInfo::exists(path)) {
        return refuse(PluginFault::NotFound, QStringLiteral("no file at %1").arg(path));
    }
    const QPluginLoader loader(path);
    const QJsonObject metadata = loader.metaData();
    if (metadata.isEmpty()) {
        return refuse(PluginFault::NotAPlugin,
                      QStringLiteral("%1 is not a plugin of Qt %2: %3")
                          .arg(path, QStringLiteral(QT_VERSION_STR), loader.errorString()));
    }
    result.iid = metadata[QLatin1String("IID")].toString();
    result.className = metadata[QLatin1String("className")].toString();
    result.key = metadata[QLatin1String("MetaData")].toObject()[QLatin1String("key")].toString();
    const int qtVersion = metadata[QLatin1String("version")].toInt();
    result.qtVersion = versionText(qtVersion);

    if (builtForOtherQt(qtVersion)) {
        return refuse(PluginFault::OtherQt,
                      QStringLiteral("%1 was built for Qt %2, this program runs with Qt %3")
                          .arg(path, result.qtVersion, QString::fromLatin1(qVersion())));
    }
    if (result.iid != QLatin1String(pluginIid)) {
        return refuse(PluginFault::WrongIid,
                      QStringLiteral("%1 is a plugin for another interface: found IID \"%2\", "
                                     "expected \"%3\"")
                          .arg(path, result.iid, QLatin1String(pluginIid)));
    }
    if (result.key != QLatin1String(pluginKey)) {
        return refuse(PluginFault::WrongKey,
                      QStringLiteral("%1 is another driver: found key \"%2\", expected \"%3\"")
                          .arg(path, result.key, QLatin1String(pluginKey)));
    }
    return result;
}

PluginError::PluginError(PluginFault fault, const QString& message)
    : std::runtime_error(message.toStdString())
    , m_fault(fault)
{
}

DriverPlugin::DriverPlugin(const QString& path)
    : m_inspection(inspectPlugin(path))
{
    if (m_inspection.fault != PluginFault::None) {
        throw PluginError(m_inspection.fault, m_inspection.message);
    }
    m_loader.setFileName(path);
    QObject* root = m_loader.instance();
    if (!root) {
        throw PluginError(PluginFault::LoadFailed, m_loader.errorString());
    }
    m_factory = qobject_cast<IFactory*>(root);
    if (!m_factory) {
        const QString className = QString::fromLatin1(root->metaObject()->className());
        m_loader.unload();
        throw PluginError(PluginFault::NotAFactory,
                          QStringLiteral("the root object of %1, a %2, is no camera factory")
                              .arg(path, className));
    }
}

DriverPlugin::~DriverPlugin()
{
    m_loader.unload();
}

} // namespace zrnhost
