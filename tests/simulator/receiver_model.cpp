#include "receiver_model.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace
{

constexpr std::size_t kTrailerBytes = 8;

/// Two images with their trailers behind them, and the frame that they come from.
struct Receiver {
    std::size_t width;
    std::size_t height;
    const std::vector<std::uint8_t>& frame;
    std::vector<std::uint8_t> a;
    std::vector<std::uint8_t> b;

    std::size_t pixels() const { return width * height; }

    void put(std::vector<std::uint8_t>& image, std::size_t index, std::size_t source) const
    {
        if (index < pixels() && source < 2 * pixels()) {
            image[index] = frame[source];
        }
    }
};

std::uint64_t trailerOf(const std::vector<std::uint8_t>& frame)
{
    std::int64_t trailer = 0;
    for (std::size_t i = 0; i < 4 && 2 + i < frame.size(); ++i) {
        std::int64_t byte = frame[2 + i];
        if (byte > 127) {
            byte -= 256;
        }
        trailer |= byte * (std::int64_t{1} << (8 * i));
    }
    return static_cast<std::uint64_t>(trailer);
}

void unpackReversedFours(Receiver& r)
{
    for (std::size_t g = 0; g < r.pixels() / 4; ++g) {
        for (std::size_t i = 0; i < 4; ++i) {
            r.a[4 * g + i] = r.frame[8 * g + 3 - i];
            r.b[4 * g + i] = r.frame[8 * g + 7 - i];
        }
    }
}

void unpackFromBothEnds(Receiver& r)
{
    const std::size_t w = r.width;
    for (std::size_t y = 0; y < r.height; ++y) {
        const std::size_t base = y * w;
        for (std::size_t k = 0; 8 * k < 2 * w; ++k) {
            const std::size_t s = 2 * w * y + 8 * k;
            r.put(r.a, base + 2 * k, s);
            r.put(r.a, base + w - 1 - 2 * k, s + 1);
            r.put(r.a, base + 2 * k + 1, s + 2);
            r.put(r.a, base + w - 2 - 2 * k, s + 3);
            r.put(r.b, base + 2 * k, s + 4);
            r.put(r.b, base + w - 1 - 2 * k, s + 5);
            r.put(r.b, base + 2 * k + 1, s + 6);
            r.put(r.b, base + w - 2 - 2 * k, s + 7);
        }
    }
}

void mirrorRight(const Receiver& r, std::vector<std::uint8_t>& image)
{
    if (r.width < 4) {
        return;
    }
    for (std::size_t y = 0; y < r.height; ++y) {
        for (std::size_t j = 0; j < r.width / 4; ++j) {
            std::swap(image[y * r.width + r.width / 2 + j], image[y * r.width + r.width - 1 - j]);
        }
    }
}

void unpackStrips(Receiver& r)
{
    constexpr std::size_t strip[] = {0, 320, 640, 960};
    for (std::size_t k = 0; k < 2 * r.pixels(); ++k) {
        const std::size_t row = k / (2 * r.width);
        const std::size_t q = (k - row * 2 * r.width) >> 3;
        r.put((k & 4) == 0 ? r.a : r.b, strip[k & 3] + r.width * row + q, k);
    }
}

void unpackAlternating(Receiver& r)
{
    for (std::size_t i = 0; i < r.pixels(); ++i) {
        r.a[i] = r.frame[2 * i];
        r.b[i] = r.frame[2 * i + 1];
    }
}

/// Moves the rows from 2 on by what pixels 2 to 7 say; `image` has its trailer behind the pixels.
void realign(std::vector<std::uint8_t>& image, std::size_t width, std::size_t height)
{
    std::string digits;
    int zero = -1;
    int colon = -1;
    for (int p = 2; p <= 7; ++p) {
        const std::uint8_t value = image[static_cast<std::size_t>(p)];
        digits += std::to_string(value);
        zero = value == 0x30 ? p : zero;
        colon = value == 0x3A ? p : colon;
    }
    if (digits == "481655890090" || digits == "48165589090") {
        return;
    }
    if (zero > 5 || (zero == -1 && colon == -1)) {
        return;
    }
    // Positive to the left
    const int move = zero > 2 ? zero - 2 : colon - 4;
    const auto w = static_cast<int>(width);
    for (std::size_t y = 2; y < height; ++y) {
        std::uint8_t* row = image.data() + y * width;
        const std::vector<std::uint8_t> before(row, row + width);
        for (int x = 0; x < w; ++x) {
            const int from = x + move;
            if (from >= 0 && from < w) {
                row[x] = before[static_cast<std::size_t>(from)];
            }
        }
    }
}

bool isVoid(const std::vector<std::uint8_t>& image)
{
    const auto pair = [&image](std::uint8_t first, std::uint8_t second) {
        return (image[0] == first || image[1] == first) &&
               (image[2] == second || image[3] == second);
    };
    return pair(0x55, 0xAA) || pair(0x33, 0xCC);
}

} // namespace

ReceivedImages receiveFrame(int sensorType, std::size_t width, std::size_t height,
                            const std::vector<std::uint8_t>& frame)
{
    ReceivedImages received;
    received.trailer = trailerOf(frame);
    const std::size_t pixels = width * height;
    if (frame.size() < (sensorType == 5 ? pixels : 2 * pixels)) {
        return received;
    }
    Receiver r{width, height, frame, {}, {}};
    r.a.resize(pixels + kTrailerBytes);
    std::memcpy(r.a.data() + pixels, &received.trailer, kTrailerBytes);
    r.b = r.a;

    switch (sensorType) {
    case 2:
    case 3:
    case 6:
    case 8:
    case 10:
    case 11:
    case 15:
        unpackReversedFours(r);
        break;
    case 5:
        std::copy_n(frame.begin(), pixels, r.a.begin());
        break;
    case 7:
        unpackFromBothEnds(r);
        break;
    case 12:
        unpackFromBothEnds(r);
        mirrorRight(r, r.a);
        mirrorRight(r, r.b);
        break;
    case 13:
        unpackStrips(r);
        break;
    case 0:
        unpackAlternating(r);
        realign(r.a, width, height);
        realign(r.b, width, height);
        break;
    default:
        unpackAlternating(r);
        break;
    }
    const bool voidA = sensorType == 6 && isVoid(r.a);
    r.a.resize(pixels);
    r.b.resize(pixels);
    if (!voidA) {
        received.a = r.a;
    }
    if (sensorType != 5) {
        received.b = r.b;
    }
    return received;
}
