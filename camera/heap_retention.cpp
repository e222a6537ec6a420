#include "heap_retention.h"

#include <algorithm>
#include <array>
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

HeapRoom::~HeapRoom()
{
    std::free(m_behind);
}

void HeapRoom::make(std::size_t count, std::size_t size)
{
    std::size_t made = m_size;
    do {
        if (size <= made) {
            return;
        }
    } while (!m_size.compare_exchange_weak(made, size));

    // For the small blocks that come to lie between.
    constexpr std::size_t slack = 4096;
    std::array<void*, 32> blocks{};
    std::size_t last = 0;
    for (std::size_t i = 0; i < std::min(count, blocks.size()); ++i) {
        blocks.at(i) = std::malloc(size + slack);
        last = blocks.at(i) ? i : last;
    }
    // The block that was taken last is the one that ends the heap. Shrinking it leaves it there.
    constexpr std::size_t smallest = 16;
    if (void* behind = std::realloc(blocks.at(last), smallest)) {
        std::free(m_behind.exchange(behind));
        blocks.at(last) = nullptr;
    }
    for (void* block : blocks) {
        std::free(block);
    }
}
