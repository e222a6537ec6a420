// formatImage, through the camera class: its results, the headers that it takes for correct, its
// moves.

#include "zrn_camera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;
using Header = std::array<unsigned char, 6>;

constexpr int unchanged = 1;
constexpr int shifted = 2;

/// An image of counting bytes, without 0x30 and 0x3A, behind a header at bytes 2 to 7.
Bytes imageWith(const Header& header, int width, int height)
{
    Bytes image(static_cast<std::size_t>(width * height));
    unsigned char next = 64;
    for (unsigned char& byte : image) {
        byte = next++;
        next = next == 0 ? 64 : next;
    }
    for (std::size_t i = 0; i < header.size() && i + 2 < image.size(); ++i) {
        image[i + 2] = header[i];
    }
    return image;
}

/// Runs formatImage on a copy with guard bytes on both sides.
int format(Bytes& image, int width, int height)
{
    constexpr std::size_t guard = 16;
    constexpr unsigned char guardValue = 0xC5;
    Bytes guarded(image.size() + 2 * guard, guardValue);
    std::copy(image.begin(), image.end(), guarded.begin() + guard);
    unsigned char* data = guarded.data() + guard;
    unsigned char* const before = data;
    const int result = CZRNCamera::formatImage(data, width, height, 12345);
    EXPECT_EQ(data, before);
    EXPECT_TRUE(std::all_of(guarded.begin(), guarded.begin() + guard,
                            [](unsigned char byte) { return byte == guardValue; }));
    EXPECT_TRUE(std::all_of(guarded.end() - guard, guarded.end(),
                            [](unsigned char byte) { return byte == guardValue; }));
    image.assign(guarded.begin() + guard, guarded.end() - guard);
    return result;
}

/// What a move by @p shift pixels leaves, byte by byte from a copy of each row before its move.
/// @param intoRowAbove whether pixels that leave a row on the left go on in the row above, from row
/// 2 on.
Bytes moved(Bytes image, int width, int height, int shift, bool intoRowAbove)
{
    for (int row = 2; row < height; ++row) {
        const auto begin = image.begin() + row * width;
        const Bytes scratch(begin, begin + width);
        for (int i = 0; i < width; ++i) {
            const int column = i + shift;
            const int lowest = intoRowAbove ? (2 - row) * width : 0;
            if (column >= lowest && column < width) {
                *(begin + column) = scratch[static_cast<std::size_t>(i)];
            }
        }
    }
    return image;
}

} // namespace

TEST(FormatImage, WithoutDataThereIsNothingToDo)
{
    unsigned char* none = nullptr;
    EXPECT_EQ(CZRNCamera::formatImage(none, 8, 8, 0), 0);
    EXPECT_EQ(none, nullptr);
}

TEST(FormatImage, EveryHeaderThatJoinsToTheKnownTextIsCorrect)
{
    const std::string known = "481655890090";
    int found = 0;
    // Cut the text into six numbers of one to three digits, none with a leading zero, none above
    // 255.
    std::vector<std::vector<std::string>> parts = {{}};
    for (int i = 0; i < 6; ++i) {
        std::vector<std::vector<std::string>> longer;
        for (const auto& part : parts) {
            std::size_t used = 0;
            for (const std::string& number : part) {
                used += number.size();
            }
            for (std::size_t length = 1; length <= 3 && used + length <= known.size(); ++length) {
                const std::string number = known.substr(used, length);
                if ((length > 1 && number[0] == '0') || std::stoi(number) > 255) {
                    continue;
                }
                longer.push_back(part);
                longer.back().push_back(number);
            }
        }
        parts = longer;
    }
    // The header that falls one digit short is correct as well.
    parts.push_back({"48", "16", "55", "89", "0", "90"});
    for (const auto& part : parts) {
        std::string joined;
        Header header{};
        for (std::size_t i = 0; i < part.size(); ++i) {
            joined += part[i];
            header[i] = static_cast<unsigned char>(std::stoi(part[i]));
        }
        if (joined != known && joined != "48165589090") {
            continue;
        }
        ++found;
        Bytes image = imageWith(header, 8, 4);
        const Bytes before = image;
        EXPECT_EQ(format(image, 8, 4), unchanged);
        EXPECT_EQ(image, before);
    }
    EXPECT_EQ(found, 2);
}

TEST(FormatImage, HeadersNextToTheCorrectOnesAreNot)
{
    for (const Header& header : {Header{48, 16, 55, 89, 0, 91}, Header{48, 16, 55, 89, 1, 90},
                                 Header{48, 17, 55, 89, 0, 90}}) {
        Bytes image = imageWith(header, 8, 4);
        const Bytes before = image;
        // The 48 in the first place is a 0x30 at position 2, alone: five to the right.
        EXPECT_EQ(format(image, 8, 4), shifted);
        EXPECT_EQ(image, moved(before, 8, 4, 5, false));
    }
}

TEST(FormatImage, EveryPairOfMarks)
{
    constexpr int width = 12;
    constexpr int height = 6;
    for (int z = 1; z <= 7; ++z) { // 1 stands for none
        for (int c = 1; c <= 7; ++c) {
            if (z == c && z > 1) {
                continue;
            }
            Header header = {1, 2, 3, 4, 5, 6};
            if (z > 1) {
                header[static_cast<std::size_t>(z - 2)] = 0x30;
            }
            if (c > 1) {
                header[static_cast<std::size_t>(c - 2)] = 0x3A;
            }
            Bytes image = imageWith(header, width, height);
            const Bytes before = image;
            const int result = format(image, width, height);

            SCOPED_TRACE("0x30 at " + std::to_string(z) + ", 0x3A at " + std::to_string(c));
            if (z > 5 || (z == 1 && c == 1)) {
                EXPECT_EQ(result, unchanged);
                EXPECT_EQ(image, before);
                continue;
            }
            EXPECT_EQ(result, shifted);
            if (z > 2) {
                EXPECT_EQ(image, moved(before, width, height, 2 - z, false));
            } else {
                const int shift = 4 - (c == 1 ? -1 : c);
                EXPECT_EQ(image, moved(before, width, height, shift, true));
            }
        }
    }
}

TEST(FormatImage, SmallImagesFollowTheRuleOfTheOthers)
{
    Bytes image = {1, 2, 3, 0x30, 5, 6};
    EXPECT_EQ(format(image, 2, 3), shifted);
    EXPECT_EQ(image, (Bytes{1, 2, 3, 0x30, 6, 6}));
    image = {1, 2, 3, 0x3A, 5, 6};
    EXPECT_EQ(format(image, 2, 3), shifted);
    EXPECT_EQ(image, (Bytes{1, 2, 3, 0x3A, 5, 5}));
    image = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(format(image, 2, 3), unchanged);
    image = {1, 2, 0x30};
    EXPECT_EQ(format(image, 1, 3), shifted);
    EXPECT_EQ(image, (Bytes{1, 2, 0x30}));
}

TEST(FormatImage, LowImagesHaveNothingToMove)
{
    for (const int height : {1, 2}) {
        Bytes image = imageWith({1, 2, 0x30, 4, 5, 6}, 10, height);
        const Bytes before = image;
        EXPECT_EQ(format(image, 10, height), shifted);
        EXPECT_EQ(image, before);
    }
}
