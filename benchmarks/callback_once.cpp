// callback_once FRAMES: delivers frames to the driver inside of callbackCounted, and copies one
// inside of copyCounted, for callgrind. Prints the compiler.

#include "compiler_name.h"
#include "stream.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

[[gnu::noinline]] void callbackCounted(Stream& stream, std::uint32_t frames)
{
    for (std::uint32_t i = 0; i < frames; ++i) {
        stream.deliver();
    }
}

/// The last byte of the copy.
[[gnu::noinline]] unsigned char copyCounted(std::vector<unsigned char>& to,
                                            const std::vector<unsigned char>& from)
{
    std::memcpy(to.data(), from.data(), from.size());
    return to.back();
}

} // namespace

int main(int argc, char** argv)
{
    constexpr Geometry geometry{320, 240}; // many a second even under callgrind
    const Bus bus(1, geometry);
    Stream stream(0, geometry);
    if (argc != 2 || !stream.started()) {
        std::fputs("usage: callback_once FRAMES\n", stderr);
        return 2;
    }
    constexpr std::uint32_t warmUp = 32; // past the ring's first lap and the logged frames
    const auto frames = static_cast<std::uint32_t>(std::atoi(argv[1]));
    stream.arrive(warmUp + frames);
    for (std::uint32_t i = 0; i < warmUp; ++i) {
        stream.deliver();
    }
    std::printf("%s %d\n", compilerName, compilerVersion);
    callbackCounted(stream, frames);
    const std::vector<unsigned char> frame(geometry.frameSize(), 1);
    std::vector<unsigned char> copy(frame.size());
    return copyCounted(copy, frame) == frame.back() ? EXIT_SUCCESS : EXIT_FAILURE;
}
