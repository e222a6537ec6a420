#include "allocation_count.h"

#include <atomic>
#include <cstdlib>

// The C library lets a program bring its own malloc and keeps its own under these names.
extern "C" {
void* __libc_malloc(std::size_t size);                     // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t number, std::size_t size); // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* pointer, std::size_t size);     // NOLINT(bugprone-reserved-identifier)
}

namespace
{

std::atomic<std::size_t> allocations = 0;
std::atomic<std::size_t> bytes = 0;

void count(std::size_t size)
{
    ++allocations;
    bytes += size;
}

} // namespace

std::size_t allocationCount()
{
    return allocations;
}

std::size_t allocatedBytes()
{
    return bytes;
}

void* malloc(std::size_t size)
{
    count(size);
    return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size)
{
    count(number * size);
    return __libc_calloc(number, size);
}

void* realloc(void* pointer, std::size_t size)
{
    count(size);
    return __libc_realloc(pointer, size);
}
