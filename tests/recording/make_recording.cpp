// Makes a recording of frames whose every byte and fact is known: make_recording FILE WIDTH HEIGHT
// FRAMES [SERIAL BEGIN PERIOD SKIPPED FIRST]: the first arrives at the time BEGIN of
// CLOCK_MONOTONIC and has the number FIRST, and the number SKIPPED is missing. Times are
// nanoseconds.

#include "client/recorder.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{

using std::chrono::microseconds;
using std::chrono::milliseconds;

std::vector<std::uint8_t> imageOf(const zrn::Frame& frame, char letter)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(std::size_t{frame.width} * frame.height + zrn::Image::trailerBytes);
    for (std::uint32_t y = 0; y < frame.height; ++y) {
        const std::uint32_t row =
            y * 5 + frame.step.number * 7 + static_cast<std::uint32_t>(letter) * 11;
        for (std::uint32_t x = 0; x < frame.width; ++x) {
            bytes.push_back(static_cast<std::uint8_t>(x * 3 + row));
        }
    }
    bytes.resize(bytes.size() + zrn::Image::trailerBytes);
    return bytes;
}

zrn::Frame frameOf(std::uint32_t number, std::uint32_t width, std::uint32_t height,
                   zrn::FrameTimes::time_point arrival)
{
    zrn::Frame frame;
    frame.width = width;
    frame.height = height;
    frame.step.number = number;
    frame.dropped = number % 2;
    frame.arrival = arrival;
    frame.times.source = zrn::FrameTimes::Source::Payload;
    frame.times.firstPayload = arrival - milliseconds(3);
    frame.times.lastPayload = arrival - milliseconds(2);
    frame.times.handOver = arrival - milliseconds(1);
    frame.times.captured = number * 1000;
    frame.exposure = microseconds(1500 + number);
    frame.gain = 10 + number;
    const auto images = std::make_shared<std::vector<std::vector<std::uint8_t>>>();
    for (const char letter : {'A', 'B'}) {
        images->push_back(imageOf(frame, letter));
    }
    frame.stored = {zrn::Image{'A', images->at(0)}, zrn::Image{'B', images->at(1)}};
    frame.imageCount = images->size();
    frame.memory = images;
    return frame;
}

} // namespace

int main(int argc, char** argv)
{
    constexpr int arguments = 5;
    constexpr int allArguments = 10;
    if (argc != arguments && argc != allArguments) {
        std::fprintf(stderr, "make_recording FILE WIDTH HEIGHT FRAMES "
                             "[SERIAL BEGIN PERIOD SKIPPED FIRST]\n");
        return 2;
    }
    try {
        const auto numberOf = [argv](int i) {
            return static_cast<std::uint32_t>(std::strtoul(argv[i], nullptr, 10));
        };
        const bool isScheduled = argc == allArguments;
        const std::string serial = isScheduled ? argv[5] : "ZR2";
        zrn::Recorder recorder(argv[1], R"({"serial":")" + serial + "\"}");
        const auto start = isScheduled
                               ? std::chrono::steady_clock::time_point(
                                     std::chrono::nanoseconds(std::strtoll(argv[6], nullptr, 10)))
                               : std::chrono::steady_clock::now();
        const std::chrono::nanoseconds period =
            isScheduled ? std::chrono::nanoseconds(numberOf(7)) : milliseconds(10);
        const std::uint32_t first = isScheduled ? numberOf(9) : 0;
        for (std::uint32_t number = first; number != first + numberOf(4); ++number) {
            if (isScheduled && number == numberOf(8)) {
                continue;
            }
            const auto arrival = start + (number - first) * period;
            if (number == first + 1) {
                recorder.note(
                    {arrival - milliseconds(5), R"({"event":"setting","key":"Gain","value":11})"});
            }
            zrn::Frame frame = frameOf(number, numberOf(2), numberOf(3), arrival);
            frame.step.missing = isScheduled && number == numberOf(8) + 1 ? 1 : 0;
            if (!recorder.add(std::move(frame))) {
                break;
            }
        }
        recorder.finish();
        const std::string error = recorder.progress().error;
        if (!error.empty()) {
            std::fprintf(stderr, "make_recording: %s\n", error.c_str());
            return 1;
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_recording: %s\n", error.what());
        return 1;
    }
}
