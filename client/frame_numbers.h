#pragma once

#include <cstdint>
#include <optional>

namespace zrn
{

/// How many low bits of the frame number a trailer shows.
///
/// The trailer joins four bytes of the frame, each sign-extended: the first byte of 0x80 or more
/// sets every bit above itself, and the higher bytes of the number are lost. @return 8, 16, 24 or
/// 32
int knownFrameNumberBits(std::uint64_t trailer);

/// What one trailer told.
struct FrameStep {
    std::uint32_t number = 0;  ///< frame number, completed from the frames before it
    std::uint32_t missing = 0; ///< numbers skipped since the frame before
    bool repeated = false;     ///< same number as the frame before
    bool restarted = false;    ///< the numbers jumped back, as after a restart of the camera
};

/// Follows the frame numbers in the trailers of successive frames, completing those whose upper
/// bytes the sign extension has hidden. Until the first trailer that shows all 32 bits, numbers are
/// right in their low bits only; the count of missing frames is right as long as no more than
/// `countableLoss` frames are missing at a stretch, and may be too low beyond.
///
/// Thread safety: thread-bound.
class FrameNumbers
{
public:
    /// Of the low byte, the only one that every trailer shows: one of its 256 values is that of the
    /// frame before, and one that of the frame itself.
    static constexpr std::uint32_t countableLoss = 254;

    FrameStep follow(std::uint64_t trailer);

private:
    std::optional<std::uint32_t> m_last;
    int m_knownBits = 0; // low bits of m_last that are certain
};

} // namespace zrn
