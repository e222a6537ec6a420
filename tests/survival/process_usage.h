#pragma once

namespace survival
{

/// What the process holds.
struct ProcessUsage {
    long residentKiB = 0;
    long allocatedBytes = 0; ///< by malloc, in all arenas
    int descriptors = 0;
    int threads = 0;

    static ProcessUsage now();
};

} // namespace survival
