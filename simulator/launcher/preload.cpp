#include "launcher/preload.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <glib.h>
#include <sstream>
#include <vector>

namespace zrnsim
{

namespace
{

bool isSanitizer(const std::string& library)
{
    constexpr const char* names[]{"libasan.so", "libtsan.so", "liblsan.so", "libubsan.so",
                                  "libclang_rt."};
    const std::string file = library.substr(library.rfind('/') + 1);
    return std::any_of(std::begin(names), std::end(names),
                       [&](const char* name) { return file.starts_with(name); });
}

/// Paths of the shared libraries that a program is linked to, as ldd prints them.
std::vector<std::string> linkedLibraries(const std::string& program)
{
    gchar* const path = g_find_program_in_path(program.c_str());
    if (path == nullptr) {
        return {};
    }
    std::string toolName = "ldd";
    std::string pathText = path;
    g_free(path);
    gchar* arguments[]{toolName.data(), pathText.data(), nullptr};
    gchar* output = nullptr;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL);
    g_spawn_sync(nullptr, arguments, nullptr, flags, nullptr, nullptr, &output, nullptr, nullptr,
                 nullptr);
    std::istringstream words(output == nullptr ? "" : output);
    g_free(output);
    std::vector<std::string> libraries;
    for (std::string word; words >> word;) {
        if (word.front() == '/') {
            libraries.push_back(word);
        }
    }
    return libraries;
}

} // namespace

bool isPreloaded()
{
    void* const library = dlopen(preloadLibrary, RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        return false;
    }
    dlclose(library);
    return true;
}

std::string preloadFor(const std::string& program)
{
    std::vector<std::string> libraries;
    const auto append = [&](const std::string& library) {
        if (!library.empty() &&
            std::find(libraries.begin(), libraries.end(), library) == libraries.end()) {
            libraries.push_back(library);
        }
    };
    for (const std::string& library : linkedLibraries(program)) {
        if (isSanitizer(library)) {
            append(library);
        }
    }
    const char* const inherited = std::getenv("LD_PRELOAD");
    std::string separated = inherited == nullptr ? "" : inherited;
    std::replace(separated.begin(), separated.end(), ':', ' ');
    std::vector<std::string> others;
    std::istringstream words(separated);
    for (std::string word; words >> word;) {
        if (isSanitizer(word)) {
            append(word);
        } else {
            others.push_back(word);
        }
    }
    append(preloadLibrary);
    std::for_each(others.begin(), others.end(), append);

    std::string joined;
    for (const std::string& library : libraries) {
        joined += (joined.empty() ? "" : ":") + library;
    }
    return joined;
}

} // namespace zrnsim
