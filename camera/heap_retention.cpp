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
    constexpr std::size_t largestRoom = std::size_t{128} * 1024 * 1024;
    std::array<void*, 32> blocks{};
    const std::size_t wanted = std::min({count, blocks.size(), largestRoom / (size + slack)});
    std::size_t taken = 0;
    while (taken < wanted) {
        blocks.at(taken) = std::malloc(size + slack);
        if (!blocks.at(taken)) {
            break;
        }
        ++taken;
    }
    // What little memory there is belongs to the host.
    if (taken > 0 && taken == wanted) {
        // The block that was taken last is the one that ends the heap. Shrinking it leaves it
        // there.
        constexpr std::size_t smallest = 16;
        void*& last = blocks.at(taken - 1);
        if (void* behind = std::realloc(last, smallest)) {
            std::free(m_behind.exchange(behind));
            last = nullptr;
        }
    }
    for (void* block : blocks) {
        std::free(block);
    }
}
