#pragma once

#include <string>

namespace zrn
{

/// The file's bytes; empty when it cannot be read.
std::string readText(const std::string& path);

/// The same without the white space at both ends.
std::string readWord(const std::string& path);

/// The number in a file of one number, or -1.
int readNumber(const std::string& path, int base);

} // namespace zrn
