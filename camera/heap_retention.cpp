#include "heap_retention.h"

#include <algorithm>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

bool isNewMemoryLocked()
{
    // A page that nobody has touched is in memory then, and only then. The account of locked memory
    // (VmLck) would tell of other threads' mappings as well.
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const page =
        mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return true; // perhaps for want of memory that may be locked
    }
    unsigned char state = 0;
    const bool isKnown = mincore(page, pageSize, &state) == 0;
    munmap(page, pageSize);
    return !isKnown || (state & 1U) != 0;
}

void letHeapKeep(std::size_t bytes)
{
    // A real-time process has its own plan for its memory, and the block would be locked.
    if (isNewMemoryLocked()) {
        return;
    }
    // When a block is freed that had a mapping of its own, the limit becomes twice its size, unless
    // the block is larger than this.
    constexpr std::size_t largestBlock = 32U * 1024 * 1024 - 64U * 1024;
    // Volatile, because compilers may drop a pair of malloc and free.
    void* volatile block = std::malloc(std::min(bytes / 2, largestBlock));
    std::free(block);
}
