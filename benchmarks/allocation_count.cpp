#include "allocation_count.h"

#include <atomic>
#include <cstdlib>

// The C library lets a program bring its own malloc and keeps its own under these names.
extern "C" {
void* __libc_malloc(std::size_t size);                    // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size); // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* pointer, std::size_t size);    // NOLINT(bugprone-reserved-identifier)
}

namespace
{

std::atomic<std::size_t> allocations = 0;

} // namespace

std::size_t allocationCount()
{
    return allocations;
}

void* malloc(std::size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* pointer, std::size_t size)
{
    ++allocations;
    return __libc_realloc(pointer, size);
}
