#include "client/frame_numbers.h"

#include <algorithm>

namespace zrn
{
namespace
{

std::uint32_t lowBits(int count)
{
    return static_cast<std::uint32_t>((std::uint64_t{1} << count) - 1);
}

} // namespace

int knownFrameNumberBits(std::uint64_t trailer)
{
    for (int bits = 8; bits < 32; bits += 8) {
        if (trailer & (std::uint64_t{1} << (bits - 1))) {
            return bits;
        }
    }
    return 32;
}

FrameStep FrameNumbers::follow(std::uint64_t trailer)
{
    const int bits = knownFrameNumberBits(trailer);
    const auto seen = static_cast<std::uint32_t>(trailer) & lowBits(bits);
    FrameStep step;
    if (!m_last) {
        m_last = seen;
        m_knownBits = bits;
        step.number = seen;
        return step;
    }

    const int shared = std::min(bits, m_knownBits);
    const std::uint32_t advance = (seen - *m_last) & lowBits(shared);
    step.repeated = advance == 0;
    // Eight bits cannot tell a long loss from a step back, and losses are what happens.
    step.restarted = shared > 8 && advance > lowBits(shared) / 2;
    if (step.restarted) {
        m_last = seen;
        m_knownBits = bits;
    } else {
        m_last = bits >= m_knownBits ? seen : *m_last + advance;
        m_knownBits = std::max(bits, m_knownBits);
        step.missing = advance > 0 ? advance - 1 : 0;
    }
    step.number = *m_last;
    return step;
}

} // namespace zrn
