#include "doctor/libraries.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdint>
#include <dlfcn.h>
#include <link.h>
#include <memory>

namespace
{

struct CloseLibrary {
    void operator()(void* library) const { ::dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

/// What libusb_get_version() answers; the layout is part of libusb's stable interface.
struct LibusbVersion {
    std::uint16_t major;
    std::uint16_t minor;
    std::uint16_t micro;
};

QVersionNumber libusbVersion()
{
    const Library library(::dlopen("libusb-1.0.so.0", RTLD_LAZY | RTLD_LOCAL));
    if (!library) {
        return {};
    }
    using GetVersion = const LibusbVersion* (*)();
    const auto getVersion =
        reinterpret_cast<GetVersion>(::dlsym(library.get(), "libusb_get_version"));
    if (!getVersion) {
        return {};
    }
    const LibusbVersion* version = getVersion();
    return {version->major, version->minor, version->micro};
}

/// libuvc tells its version only through the name of its file: libuvc.so.0.0.6.
QVersionNumber libuvcVersion()
{
    const Library library(::dlopen("libuvc.so.0", RTLD_LAZY | RTLD_LOCAL));
    link_map* map = nullptr;
    if (!library || ::dlinfo(library.get(), RTLD_DI_LINKMAP, &map) != 0) {
        return {};
    }
    const QString file = QFileInfo(QFile::decodeName(map->l_name)).canonicalFilePath();
    const QRegularExpression pattern(QStringLiteral(R"(\.so\.(\d+\.\d+\.\d+)$)"));
    return QVersionNumber::fromString(pattern.match(file).captured(1));
}

} // namespace

LibraryVersions loadedLibraryVersions()
{
    return {libusbVersion(), libuvcVersion()};
}
