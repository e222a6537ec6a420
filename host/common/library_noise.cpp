#include "common/library_noise.h"

#include <QLoggingCategory>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <unistd.h>

namespace zrnhost
{
namespace
{

/// How the lines of libuvc begin that tell of what its callers are used to.
constexpr std::array<std::string_view, 2> harmless = {
    "attempt to claim already-claimed interface ",
    "attempt to release unclaimed interface ",
};

/// Takes each text that somebody prints on `stderr`.
ssize_t pass(void*, const char* bytes, std::size_t size)
{
    const std::string_view text(bytes, size);
    if (std::ranges::any_of(harmless, [text](auto line) { return text.starts_with(line); })) {
        return static_cast<ssize_t>(size);
    }
    return ::write(STDERR_FILENO, bytes, size);
}

} // namespace

void silenceLibuvc()
{
    std::FILE* const filtered = ::fopencookie(
        nullptr, "w", {.read = nullptr, .write = pass, .seek = nullptr, .close = nullptr});
    if (filtered) {
        // Each call of printf() is a text of its own then, and none is lost in a crash.
        std::setvbuf(filtered, nullptr, _IONBF, 0);
        stderr = filtered;
    }
}

void silenceLibraries()
{
    QLoggingCategory::setFilterRules(
        QStringLiteral("*.debug=false\n*.info=false\nZRNCamera=false"));
    silenceLibuvc();
}

} // namespace zrnhost
