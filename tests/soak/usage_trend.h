#pragma once

#include "process_usage.h"
#include "stream_ledger.h"

#include <iosfwd>
#include <vector>

namespace soak
{

/// What the process holds over time, looked at whenever it does the same.
class UsageTrend
{
public:
    void sample();

    /// Prints first and last values and slopes. @return whether memory, descriptors and threads
    /// stay what they were after the first fifth of the time.
    bool print(std::ostream& stream) const;

private:
    struct Sample {
        Seconds time;
        survival::ProcessUsage usage;
    };
    std::vector<Sample> m_samples;
};

} // namespace soak
