#include "client/driver_plugin.h"

#include "client/error.h"

#include <QFile>

namespace zrn
{

DriverPlugin::DriverPlugin(const std::string& path)
    : m_inspection(inspectPlugin(path))
{
    if (m_inspection.fault != PluginFault::None) {
        refuse(m_inspection.fault, m_inspection.message);
    }
    m_loader.setFileName(QFile::decodeName(path.c_str()));
    QObject* root = m_loader.instance();
    if (!root) {
        refuse(PluginFault::LoadFailed, m_loader.errorString().toStdString());
    }
    m_factory = qobject_cast<IFactory*>(root);
    if (!m_factory) {
        const std::string className = root->metaObject()->className();
        m_loader.unload();
        refuse(PluginFault::NotAFactory,
               "the root object of " + path + ", a " + className + ", is no camera factory");
    }
}

DriverPlugin::~DriverPlugin()
{
    m_loader.unload();
}

void DriverPlugin::refuse(PluginFault fault, const std::string& message)
{
    m_inspection.fault = fault;
    throw Error(Error::Kind::Plugin, nameOf(fault), message, m_inspection.remedy());
}

} // namespace zrn
