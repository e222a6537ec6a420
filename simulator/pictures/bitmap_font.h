#pragma once

#include <array>
#include <cstdint>

namespace zrnsim
{

inline constexpr int kGlyphWidth = 5;
inline constexpr int kGlyphHeight = 7;

/// Seven rows of five dots, the leftmost dot in bit 4.
using Glyph = std::array<std::uint8_t, kGlyphHeight>;

/// The glyph of a digit, a capital letter or a space; a space for every other character.
const Glyph& glyphOf(char character);

} // namespace zrnsim
