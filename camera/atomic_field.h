#pragma once

#include <atomic>

/// Atomic access to a plain field that host threads and libuvc's streaming thread share without a
/// lock.
template <typename T>
std::atomic_ref<T> shared(T& field)
{
    return std::atomic_ref<T>(field);
}
