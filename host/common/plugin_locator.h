#pragma once

#include <QString>

#include <vector>

namespace zrnhost
{

/// One place where the driver plugin may lie.
struct PluginCandidate {
    QString origin; ///< why this place: "option --plugin", "build tree", ...
    QString path;   ///< absolute path of the library file
    bool required;  ///< the user named it, so nothing else may be taken in its stead
};

/// Environment variable that names the plugin file.
inline constexpr const char* pluginVariable = "ZRNCAM_PLUGIN";

/// Places to look for the plugin, in the order of preference: the user's choice, the environment,
/// the build tree that @p executableDir lies in, the folders where Qt keeps its plugins.
///
/// @param chosen path given by the user, or empty.
std::vector<PluginCandidate> pluginCandidates(const QString& chosen, const QString& executableDir);

/// The candidate to load: the first that is required or exists. An empty path when there is none.
PluginCandidate choosePlugin(const std::vector<PluginCandidate>& candidates);

} // namespace zrnhost
