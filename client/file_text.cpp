#include "client/file_text.h"

#include <charconv>
#include <fstream>
#include <iterator>

namespace zrn
{

std::string readText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string readWord(const std::string& path)
{
    constexpr const char* space = " \t\n";
    const std::string text = readText(path);
    const std::size_t begin = text.find_first_not_of(space);
    return begin == std::string::npos
               ? std::string()
               : text.substr(begin, text.find_last_not_of(space) - begin + 1);
}

int readNumber(const std::string& path, int base)
{
    const std::string text = readWord(path);
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

} // namespace zrn
