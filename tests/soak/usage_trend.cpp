#include "usage_trend.h"

#include <algorithm>
#include <iomanip>
#include <malloc.h>
#include <ostream>

namespace soak
{
namespace
{

struct Line {
    double first;
    double last;
    double slopePerHour;
};

/// The straight line nearest to the samples.
template <typename Samples, typename Value>
Line fit(const Samples& samples, const Value& value)
{
    double meanTime = 0;
    double meanValue = 0;
    for (const auto& sample : samples) {
        meanTime += sample.time / static_cast<double>(samples.size());
        meanValue += value(sample) / static_cast<double>(samples.size());
    }
    double covariance = 0;
    double variance = 0;
    for (const auto& sample : samples) {
        covariance += (sample.time - meanTime) * (value(sample) - meanValue);
        variance += (sample.time - meanTime) * (sample.time - meanTime);
    }
    constexpr double secondsPerHour = 3600;
    return {value(samples.front()), value(samples.back()),
            variance > 0 ? covariance / variance * secondsPerHour : 0};
}

/// What the process held, at times that are evenly spread.
template <typename Samples>
void printCourse(std::ostream& stream, const Samples& samples)
{
    constexpr std::size_t lines = 12;
    stream << "\n   minute  allocated KiB   resident KiB  descriptors  threads\n";
    for (std::size_t i = 0; i < lines; ++i) {
        const auto& sample = samples[i * (samples.size() - 1) / (lines - 1)];
        stream << std::fixed << std::setprecision(1) << std::setw(9)
               << (sample.time - samples.front().time) / 60 << std::setw(15)
               << sample.usage.allocatedBytes / 1024 << std::setw(15) << sample.usage.residentKiB
               << std::setw(13) << sample.usage.descriptors << std::setw(9) << sample.usage.threads
               << '\n';
    }
}

} // namespace

void UsageTrend::sample()
{
    malloc_trim(0); // what is free does not count as held
    m_samples.push_back({now(), survival::ProcessUsage::now()});
}

bool UsageTrend::print(std::ostream& stream) const
{
    struct Row {
        const char* name;
        double (*value)(const Sample& sample);
        double allowedGrowth; ///< over the whole time
    };
    // A departure in the very moment of a request may cost a descriptor; see docs/reliability.md.
    constexpr double kib = 1024;
    constexpr Row rows[] = {
        {"allocated KiB",
         [](const Sample& s) { return static_cast<double>(s.usage.allocatedBytes) / kib; }, 1024},
        {"resident KiB", [](const Sample& s) { return static_cast<double>(s.usage.residentKiB); },
         16 * 1024},
        {"descriptors", [](const Sample& s) { return static_cast<double>(s.usage.descriptors); },
         4},
        {"threads", [](const Sample& s) { return static_cast<double>(s.usage.threads); }, 1},
    };

    const auto warm = m_samples.begin() + static_cast<std::ptrdiff_t>(m_samples.size() / 5);
    const std::vector<Sample> samples(warm, m_samples.end());
    if (samples.size() < 2) {
        stream << "  too few samples\n";
        return false;
    }
    const double hours = (samples.back().time - samples.front().time) / 3600;
    bool isFlat = true;
    for (const Row& row : rows) {
        const Line line = fit(samples, row.value);
        const bool grows = line.slopePerHour * hours > row.allowedGrowth;
        isFlat = isFlat && !grows;
        stream << "  " << std::left << std::setw(16) << row.name << std::right << std::fixed
               << std::setprecision(0) << std::setw(10) << line.first << " to" << std::setw(10)
               << line.last << std::setprecision(1) << std::setw(12) << line.slopePerHour
               << " per hour" << (grows ? "  GROWS" : "") << '\n';
    }
    printCourse(stream, m_samples);
    return isFlat;
}

} // namespace soak
