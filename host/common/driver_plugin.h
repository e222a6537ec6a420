#pragma once

#include "factory_interface.h"

#include <QPluginLoader>
#include <QString>

#include <stdexcept>

namespace zrnhost
{

/// IID and key that the driver's metadata carries.
inline constexpr const char* pluginIid = "Quorvane.Hardware.ZRNCameraFactory.v2.0";
inline constexpr const char* pluginKey = "zrncamera";

/// Why a file cannot serve as the driver.
enum class PluginFault {
    None,
    NotFound,    ///< no such file
    NotAPlugin,  ///< unreadable, or a file without Qt plugin metadata
    OtherQt,     ///< built for another Qt than this program runs with
    WrongIid,    ///< a plugin of something else
    WrongKey,    ///< right interface, other driver
    LoadFailed,  ///< the dynamic linker refused it, as when a library is missing
    NotAFactory, ///< its root object does not answer the factory interface
};

/// What the metadata of a plugin file says; nothing of the plugin runs to find out.
struct PluginInspection {
    QString path;
    QString iid;
    QString className;
    QString key;
    QString qtVersion; ///< "5.15", of the Qt that the plugin was built with; empty if unknown
    PluginFault fault = PluginFault::None;
    QString message; ///< what is wrong, naming what was found and what was expected
};

/// Reads and judges the metadata of the library at the absolute @p path.
PluginInspection inspectPlugin(const QString& path);

/// The plugin cannot be used.
class PluginError : public std::runtime_error
{
public:
    PluginError(PluginFault fault, const QString& message);
    PluginFault fault() const { return m_fault; }

private:
    PluginFault m_fault;
};

/// The loaded driver. Owns the library and, through it, the factory: destroying this object deletes
/// the factory and with it every camera that it made.
///
/// Thread safety: thread-bound; the factory has rules of its own.
class DriverPlugin
{
public:
    /// Inspects, loads and instantiates. @throws PluginError
    explicit DriverPlugin(const QString& path);
    ~DriverPlugin();
    DriverPlugin(const DriverPlugin&) = delete;
    DriverPlugin& operator=(const DriverPlugin&) = delete;

    IFactory& factory() { return *m_factory; }
    const PluginInspection& inspection() const { return m_inspection; }

private:
    PluginInspection m_inspection;
    QPluginLoader m_loader;
    IFactory* m_factory = nullptr; // owned by the loader
};

} // namespace zrnhost
