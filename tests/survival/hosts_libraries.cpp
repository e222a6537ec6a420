#include "hosts_libraries.h"

#include <QLibrary>
#include <QPluginLoader>

#include <cstdlib>
#include <dlfcn.h>
#include <sstream>
#include <stdexcept>

namespace survival
{
namespace
{

constexpr auto guardsInEffect = "in effect";

std::string setting(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

void loadAll(const std::string& names, int flags)
{
    std::istringstream list(names);
    for (std::string name; list >> name;) {
        if (!dlopen(name.c_str(), RTLD_LAZY | flags)) {
            throw std::runtime_error(dlerror());
        }
    }
}

} // namespace

void loadHostsLibraries()
{
    loadAll(setting("ZRN_HOST_LOADS"), RTLD_GLOBAL);
    loadAll(setting("ZRN_HOST_LOADS_FOR_ITSELF"), RTLD_LOCAL);
    const std::string hint = setting("ZRN_PLUGIN_HINT");
    if (!hint.empty()) {
        // Whoever loads the file next shares what is loaded here.
        QPluginLoader first(QStringLiteral(ZRN_PLUGIN));
        first.setLoadHints(hint == "deepbind" ? QLibrary::DeepBindHint
                                              : QLibrary::ExportExternalSymbolsHint);
        first.load();
    }
}

std::string expectedGuards()
{
    const std::string expected = setting("ZRN_EXPECTED_GUARDS");
    return expected.empty() ? guardsInEffect : expected;
}

bool hasUnguardedDriver()
{
    return expectedGuards() != guardsInEffect;
}

} // namespace survival
