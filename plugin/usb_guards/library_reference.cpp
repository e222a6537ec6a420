#include "library_reference.h"

#include <dlfcn.h>
#include <link.h>

namespace usbguards
{
namespace
{

const link_map* mapAround(const void* address)
{
    Dl_info info{};
    void* map = nullptr;
    return dladdr1(address, &info, &map, RTLD_DL_LINKMAP) != 0 ? static_cast<link_map*>(map)
                                                               : nullptr;
}

LibraryReference referTo(const void* address, int flags)
{
    const link_map* const map = mapAround(address);
    if (!map) {
        return nullptr;
    }
    // The program itself has no name.
    const char* const name = map->l_name && *map->l_name ? map->l_name : nullptr;
    LibraryReference library(dlopen(name, RTLD_LAZY | RTLD_NOLOAD | flags));
    // Another file may have come to have the same name.
    return library.get() == map ? std::move(library) : nullptr;
}

} // namespace

void CloseLibrary::operator()(void* library) const
{
    dlclose(library);
}

LibraryReference libraryAround(const void* address)
{
    return referTo(address, 0);
}

const char* libraryName(const void* address)
{
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fname : "";
}

void stayLoaded()
{
    static const char here = 0;
    static_cast<void>(referTo(&here, RTLD_NODELETE));
}

} // namespace usbguards
