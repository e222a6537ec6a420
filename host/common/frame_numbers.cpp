#include "common/frame_numbers.h"

#include <algorithm>

namespace zrnhost
{
namespace
{

quint32 lowBits(int count)
{
    return static_cast<quint32>((quint64{1} << count) - 1);
}

} // namespace

int knownFrameNumberBits(quint64 trailer)
{
    for (int bits = 8; bits < 32; bits += 8) {
        if (trailer & (quint64{1} << (bits - 1))) {
            return bits;
        }
    }
    return 32;
}

FrameStep FrameNumbers::follow(quint64 trailer)
{
    const int bits = knownFrameNumberBits(trailer);
    const auto seen = static_cast<quint32>(trailer) & lowBits(bits);
    FrameStep step;
    if (!m_last) {
        m_last = seen;
        m_knownBits = bits;
        step.number = seen;
        return step;
    }

    const int shared = std::min(bits, m_knownBits);
    const quint32 advance = (seen - *m_last) & lowBits(shared);
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

} // namespace zrnhost
