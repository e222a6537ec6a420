#include "process_usage.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <unistd.h>

namespace survival
{
namespace
{

int entries(const char* folder)
{
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder),
                                          std::filesystem::directory_iterator()));
}

} // namespace

ProcessUsage ProcessUsage::now()
{
    long allPages = 0;
    long residentPages = 0;
    std::ifstream("/proc/self/statm") >> allPages >> residentPages;
    const struct mallinfo2 memory = mallinfo2();
    return {residentPages * (sysconf(_SC_PAGESIZE) / 1024),
            static_cast<long>(memory.uordblks + memory.hblkhd), entries("/proc/self/fd"),
            entries("/proc/self/task")};
}

} // namespace survival
