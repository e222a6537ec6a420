#include "common/plugin_locator.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>

namespace zrnhost
{
namespace
{

constexpr const char* fileName = "libzrncamera.so";

} // namespace

std::vector<PluginCandidate> pluginCandidates(const QString& chosen, const QString& executableDir)
{
    std::vector<PluginCandidate> candidates;
    if (!chosen.isEmpty()) {
        candidates.push_back({QStringLiteral("option --plugin"), chosen, true});
    }
    const QString fromEnvironment = qEnvironmentVariable(pluginVariable);
    if (!fromEnvironment.isEmpty()) {
        candidates.push_back(
            {QStringLiteral("environment variable %1").arg(QLatin1String(pluginVariable)),
             fromEnvironment, true});
    }
    candidates.push_back({QStringLiteral("build tree"),
                          executableDir + QLatin1String("/../lib/") + QLatin1String(fileName),
                          false});

    QStringList folders{QLibraryInfo::location(QLibraryInfo::PluginsPath)};
    folders += QCoreApplication::libraryPaths();
    folders.removeDuplicates();
    for (const QString& folder : folders) {
        for (const char* subfolder : {"/zrncamera/", "/"}) {
            candidates.push_back({QStringLiteral("Qt plugin folder"),
                                  folder + QLatin1String(subfolder) + QLatin1String(fileName),
                                  false});
        }
    }
    // A relative path must not make Qt search its own folders for a file of that name.
    for (PluginCandidate& candidate : candidates) {
        candidate.path = QDir::cleanPath(QFileInfo(candidate.path).absoluteFilePath());
    }
    return candidates;
}

PluginCandidate choosePlugin(const std::vector<PluginCandidate>& candidates)
{
    for (const PluginCandidate& candidate : candidates) {
        if (candidate.required || QFileInfo::exists(candidate.path)) {
            return candidate;
        }
    }
    return {QString(), QString(), false};
}

} // namespace zrnhost
