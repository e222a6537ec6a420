#include "client/plugin_file.h"

#include "client/error.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

#include <dlfcn.h>
#include <filesystem>
#include <link.h>

namespace zrn
{
namespace
{

namespace fs = std::filesystem;

constexpr const char* fileName = "libzrncamera.so";

/// Folder of the library that this was linked into; empty where that is the program itself.
fs::path ownLibraryFolder()
{
    Dl_info information{};
    link_map* map = nullptr;
    const bool isKnown =
        ::dladdr1(fileName, &information, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0;
    if (!isKnown || map->l_name[0] == '\0') {
        return {};
    }
    std::error_code error;
    return fs::canonical(map->l_name, error).parent_path();
}

/// What the nearest folder of libraries above this one lies in; empty where there is none.
fs::path prefixOf(fs::path folder)
{
    for (; folder.has_filename(); folder = folder.parent_path()) {
        if (folder.filename() == "lib" || folder.filename() == "lib64") {
            return folder.parent_path();
        }
    }
    return {};
}

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

std::vector<PluginCandidate> pluginCandidates(const std::string& chosen,
                                              const std::string& executableFolder,
                                              const std::string& libraryFolder)
{
    std::vector<PluginCandidate> candidates;
    if (!chosen.empty()) {
        candidates.push_back({"given file", chosen, true});
    }
    const QByteArray fromEnvironment = qgetenv(pluginVariable);
    if (!fromEnvironment.isEmpty()) {
        candidates.push_back({std::string("environment variable ") + pluginVariable,
                              fromEnvironment.toStdString(), true});
    }
    if (!libraryFolder.empty()) {
        candidates.push_back(
            {"build tree of the library", libraryFolder + "/../" + fileName, false});
        if (const fs::path prefix = prefixOf(libraryFolder); !prefix.empty()) {
            candidates.push_back(
                {"installation of the library", prefix / ZRN_PLUGIN_BELOW_PREFIX, false});
        }
    }
    candidates.push_back({"build tree", executableFolder + "/../lib/" + fileName, false});
    candidates.push_back(
        {"installation", fs::path(executableFolder) / ZRN_PLUGIN_FROM_PROGRAMS, false});
    candidates.push_back({"configured installation", ZRN_INSTALLED_PLUGIN, false});

    const QStringList folders = QCoreApplication::libraryPaths();
    for (const QString& folder : folders) {
        for (const char* subfolder : {"/zrncamera/", "/"}) {
            candidates.push_back({"Qt plugin folder",
                                  QFile::encodeName(folder).toStdString() + subfolder + fileName,
                                  false});
        }
    }
    // A relative path must not make Qt search its own folders for a file of that name.
    for (PluginCandidate& candidate : candidates) {
        candidate.path = fs::absolute(candidate.path).lexically_normal().string();
    }
    return candidates;
}

std::vector<PluginCandidate> pluginCandidates(const std::string& chosen)
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return pluginCandidates(chosen, program.parent_path().string(), ownLibraryFolder().string());
}

PluginCandidate choosePlugin(const std::vector<PluginCandidate>& candidates)
{
    for (const PluginCandidate& candidate : candidates) {
        std::error_code error;
        if (candidate.required || fs::exists(candidate.path, error)) {
            return candidate;
        }
    }
    return {};
}

std::string findPlugin(const std::string& chosen)
{
    const std::vector<PluginCandidate> candidates = pluginCandidates(chosen);
    const PluginCandidate candidate = choosePlugin(candidates);
    if (!candidate.path.empty()) {
        return candidate.path;
    }
    std::string places;
    for (const PluginCandidate& place : candidates) {
        places += (places.empty() ? "" : ", ") + place.path;
    }
    PluginInspection nothing;
    nothing.fault = PluginFault::NotFound;
    throw Error(Error::Kind::Plugin, nameOf(nothing.fault),
                "the driver plugin was not found; looked for " + places, nothing.remedy());
}

const char* nameOf(PluginFault fault)
{
    switch (fault) {
    case PluginFault::None:
        return "None";
    case PluginFault::NotFound:
        return "NotFound";
    case PluginFault::NotAPlugin:
        return "NotAPlugin";
    case PluginFault::OtherQt:
        return "OtherQt";
    case PluginFault::WrongIid:
        return "WrongIid";
    case PluginFault::WrongKey:
        return "WrongKey";
    case PluginFault::LoadFailed:
        return "LoadFailed";
    case PluginFault::NotAFactory:
        break;
    }
    return "NotAFactory";
}

std::string PluginInspection::remedy() const
{
    switch (fault) {
    case PluginFault::None:
        return {};
    case PluginFault::NotFound:
        return std::string("name the file with the environment variable ") + pluginVariable;
    case PluginFault::OtherQt:
        return "build the plugin with the Qt that this program uses";
    case PluginFault::LoadFailed:
        return "install the libraries that it misses ('ldd " + path + "' lists them)";
    default:
        return std::string("choose ") + fileName + " with the environment variable " +
               pluginVariable;
    }
}

PluginInspection inspectPlugin(const std::string& path)
{
    PluginInspection result;
    result.path = path;
    const auto refuse = [&result](PluginFault fault, const QString& message) {
        result.fault = fault;
        result.message = message.toStdString();
        return result;
    };

    const QString file = QFile::decodeName(path.c_str());
    if (!QFileInfo::exists(file)) {
        return refuse(PluginFault::NotFound, QStringLiteral("no file at %1").arg(file));
    }
    const QPluginLoader loader(file);
    const QJsonObject metadata = loader.metaData();
    if (metadata.isEmpty()) {
        return refuse(PluginFault::NotAPlugin,
                      QStringLiteral("%1 is not a plugin of Qt %2: %3")
                          .arg(file, QStringLiteral(QT_VERSION_STR), loader.errorString()));
    }
    const QString iid = metadata[QLatin1String("IID")].toString();
    const QString key =
        metadata[QLatin1String("MetaData")].toObject()[QLatin1String("key")].toString();
    const int qtVersion = metadata[QLatin1String("version")].toInt();
    result.iid = iid.toStdString();
    result.key = key.toStdString();
    result.className = metadata[QLatin1String("className")].toString().toStdString();
    result.qtVersion = versionText(qtVersion).toStdString();

    if (builtForOtherQt(qtVersion)) {
        return refuse(PluginFault::OtherQt,
                      QStringLiteral("%1 was built for Qt %2, this program runs with Qt %3")
                          .arg(file, versionText(qtVersion), QString::fromLatin1(qVersion())));
    }
    if (iid != QLatin1String(pluginIid)) {
        return refuse(PluginFault::WrongIid,
                      QStringLiteral("%1 is a plugin for another interface: found IID \"%2\", "
                                     "expected \"%3\"")
                          .arg(file, iid, QLatin1String(pluginIid)));
    }
    if (key != QLatin1String(pluginKey)) {
        return refuse(PluginFault::WrongKey,
                      QStringLiteral("%1 is another driver: found key \"%2\", expected \"%3\"")
                          .arg(file, key, QLatin1String(pluginKey)));
    }
    return result;
}

std::string runningQtVersion()
{
    return qVersion();
}

} // namespace zrn
