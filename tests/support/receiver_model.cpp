#include "receiver_model.h"

#include "pictures/sensor_types.h"
#include "unpacking_model.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace
{

constexpr std::size_t kTrailerBytes = 8;

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
    const zrnsim::SensorType& sensor = zrnsim::sensorTypeOf(sensorType);
    const bool isSingle = sensor.layout == zrnsim::FrameLayout::Single;
    if (frame.size() < (isSingle ? pixels : 2 * pixels)) {
        return received;
    }
    UnpackingModel images(sensor.layout, width, height, frame);
    for (std::vector<std::uint8_t>* image : {&images.a, &images.b}) {
        // The head of a tiny image reaches into its trailer.
        image->resize(pixels + kTrailerBytes);
        std::memcpy(image->data() + pixels, &received.trailer, kTrailerBytes);
        if (sensor.layout == zrnsim::FrameLayout::InterleavedShifted) {
            realign(*image, width, height);
        }
    }
    const bool voidA = sensor.sendsMarkers && isVoid(images.a);
    images.a.resize(pixels);
    images.b.resize(pixels);
    if (!voidA) {
        received.a = images.a;
    }
    if (!isSingle) {
        received.b = images.b;
    }
    return received;
}

zrnsim::SentImages zrnsim::expectedImages(const FrameRequest& request)
{
    std::vector<std::uint8_t> frame;
    FrameComposer().compose(request, frame);
    ReceivedImages received =
        receiveFrame(request.sensorType, static_cast<std::size_t>(request.width),
                     static_cast<std::size_t>(request.height), frame);
    SentImages sent;
    sent.hasA = received.a.has_value();
    sent.hasB = received.b.has_value();
    sent.a = std::move(received.a).value_or(std::vector<std::uint8_t>());
    sent.b = std::move(received.b).value_or(std::vector<std::uint8_t>());
    sent.trailer = received.trailer;
    return sent;
}

std::uint64_t zrnsim::trailerOf(const FrameRequest& request)
{
    std::vector<std::uint8_t> frame(2);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        frame.push_back(static_cast<std::uint8_t>(request.frameNumber >> shift));
    }
    const std::size_t bytes = static_cast<std::size_t>(request.width) *
                              static_cast<std::size_t>(request.height) *
                              static_cast<std::size_t>(request.bytesPerPosition);
    frame.resize(std::min(frame.size(), bytes));
    return ::trailerOf(frame);
}
