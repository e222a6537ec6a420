#pragma once

#include <string>
#include <vector>

namespace zrn
{

/// IID and key that the driver's metadata carries.
inline constexpr const char* pluginIid = "Quorvane.Hardware.ZRNCameraFactory.v2.0";
inline constexpr const char* pluginKey = "zrncamera";

/// Environment variable that names the plugin file.
inline constexpr const char* pluginVariable = "ZRNCAM_PLUGIN";

/// One place where the driver plugin may lie.
struct PluginCandidate {
    std::string origin;    ///< why this place: "given file", "build tree", ...
    std::string path;      ///< absolute path of the library file
    bool required = false; ///< the user named it, so nothing else may be taken in its stead
};

/// Places to look for the plugin, in the order of preference: the user's choice, the environment,
/// the build tree or the installation that @p libraryFolder lies in, those that
/// @p executableFolder lies in, the folder that this library was configured to be installed with,
/// the folders where Qt keeps its plugins.
///
/// @param chosen path given by the user, or empty
/// @param libraryFolder of the shared library that this code is in, as in the plugins of other
/// programs; empty where it is in the program
/// Thread safety: reentrant, as all of this header.
std::vector<PluginCandidate> pluginCandidates(const std::string& chosen,
                                              const std::string& executableFolder,
                                              const std::string& libraryFolder = {});
/// The same for the folders of this library and this program.
std::vector<PluginCandidate> pluginCandidates(const std::string& chosen);

/// The candidate to load: the first that is required or exists. An empty path when there is none.
PluginCandidate choosePlugin(const std::vector<PluginCandidate>& candidates);

/// The file to load. @param chosen path given by the user, or empty @throws Error
std::string findPlugin(const std::string& chosen = {});

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

/// The name of a fault, as its enumerator is spelt.
const char* nameOf(PluginFault fault);

/// What the metadata of a plugin file says; nothing of the plugin runs to find out.
struct PluginInspection {
    std::string path;
    std::string iid;
    std::string className;
    std::string key;
    std::string qtVersion; ///< "5.15", of the Qt that the plugin was built with; empty if unknown
    PluginFault fault = PluginFault::None;
    std::string message; ///< what is wrong, naming what was found and what was expected

    /// What the user can do about the fault; empty without one. It ends with the variable's name
    /// where another file is to be named, so that a program can add its own way of naming one.
    [[nodiscard]] std::string remedy() const;
};

/// Reads and judges the metadata of the library at the absolute @p path.
PluginInspection inspectPlugin(const std::string& path);

/// Version of the Qt that this process runs with, as "5.15.8".
std::string runningQtVersion();

} // namespace zrn
