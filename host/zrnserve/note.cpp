#include "zrnserve/note.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace zrnserve
{

void note(const char* format, ...)
{
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // One call, so that lines of several threads do not mix.
    std::fputs(("zrnserve: " + std::string(text) + "\n").c_str(), stderr);
}

} // namespace zrnserve
