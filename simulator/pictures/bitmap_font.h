#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace zrnsim
{

inline constexpr int kGlyphWidth = 5;
inline constexpr int kGlyphHeight = 7;

/// Seven rows of five dots, the leftmost dot in bit 4.
struct Glyph {
    char character;
    std::array<std::uint8_t, kGlyphHeight> rows;
};

/// What the pictures write. Fonts of the machine would make them differ from one to another.
inline constexpr auto kGlyphs = std::to_array<Glyph>({
    {'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    {'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'2', {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111}},
    {'3', {0b01110, 0b10001, 0b00001, 0b00110, 0b00001, 0b10001, 0b01110}},
    {'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    {'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    {'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b00100, 0b01000, 0b01000}},
    {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    {'A', {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'B', {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110}},
    {'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
    {'P', {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000}},
    {'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
    {'X', {0b10001, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001, 0b10001}},
    {'Y', {0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100, 0b00100}},
});

/// Whether a character has a dot there; those without a glyph are blank.
constexpr bool hasDot(char character, int x, int y)
{
    const auto* const glyph = std::ranges::find(kGlyphs, character, &Glyph::character);
    return glyph != kGlyphs.end() &&
           (glyph->rows[static_cast<std::size_t>(y)] >> (kGlyphWidth - 1 - x) & 1) != 0;
}

} // namespace zrnsim
