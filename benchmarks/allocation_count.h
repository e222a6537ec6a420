#pragma once

#include <cstddef>

/// How often this program has allocated memory so far, in any thread.
std::size_t allocationCount();

/// How much it has asked for, likewise.
std::size_t allocatedBytes();
