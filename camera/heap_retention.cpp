#include "heap_retention.h"

#include <algorithm>
#include <cstdlib>

void letHeapKeep(std::size_t bytes)
{
    // When a block is freed that had a mapping of its own, the limit becomes twice its size, unless
    // the block is larger than this.
    constexpr std::size_t largestBlock = 32U * 1024 * 1024 - 64U * 1024;
    // Volatile, because compilers may drop a pair of malloc and free.
    void* volatile block = std::malloc(std::min(bytes / 2, largestBlock));
    std::free(block);
}
