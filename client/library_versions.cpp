#include "client/library_versions.h"

#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <memory>

namespace zrn
{
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

LibraryVersion libusbVersion()
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
LibraryVersion libuvcVersion()
{
    const Library library(::dlopen("libuvc.so.0", RTLD_LAZY | RTLD_LOCAL));
    link_map* map = nullptr;
    if (!library || ::dlinfo(library.get(), RTLD_DI_LINKMAP, &map) != 0) {
        return {};
    }
    std::error_code error;
    const std::string file = std::filesystem::canonical(map->l_name, error).filename().string();
    LibraryVersion version{};
    const bool isComplete =
        std::sscanf(file.c_str(), "libuvc.so.%d.%d.%d", &version[0], &version[1], &version[2]) == 3;
    return isComplete ? version : LibraryVersion{};
}

} // namespace

LibraryVersions loadedLibraryVersions()
{
    return {libusbVersion(), libuvcVersion()};
}

} // namespace zrn
