// The other user in a process of its own: reads names of cases, and prints what it saw.

#include "usb_user.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace
{

constexpr unsigned ordinal = 1;

void print(void*, const char* step, const char* outcome, double milliseconds)
{
    std::printf("%s\t%s\t%f\n", step, outcome, milliseconds);
}

} // namespace

int main()
{
    for (std::string name; std::getline(std::cin, name);) {
        if (!useUvc(name.c_str(), ordinal, print, nullptr)) {
            useUsb(name.c_str(), ordinal, print, nullptr);
        }
        std::puts(".");
        std::fflush(stdout);
    }
}
