#pragma once

#include "client/plugin_file.h"
#include "factory_interface.h"

#include <QPluginLoader>

#include <string>

namespace zrn
{

/// A loaded plugin. Owns the library and, through it, the factory: destroying this object deletes
/// the factory and with it every camera that it made. It speaks the host contract and Qt, for
/// whoever checks or tests a driver; a host uses Driver.
///
/// Thread safety: thread-bound; the factory has rules of its own.
class DriverPlugin
{
public:
    /// Inspects, loads and instantiates. @throws Error
    explicit DriverPlugin(const std::string& path);
    ~DriverPlugin();
    DriverPlugin(const DriverPlugin&) = delete;
    DriverPlugin& operator=(const DriverPlugin&) = delete;

    IFactory& factory() { return *m_factory; }
    const PluginInspection& inspection() const { return m_inspection; }

private:
    [[noreturn]] void refuse(PluginFault fault, const std::string& message);

    PluginInspection m_inspection;
    QPluginLoader m_loader;
    IFactory* m_factory = nullptr; // owned by the loader
};

} // namespace zrn
