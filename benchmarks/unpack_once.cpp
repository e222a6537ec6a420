// unpack_once INSTRUCTION_SET SENSOR_TYPE WIDTH HEIGHT: unpacks one frame inside of unpackCounted,
// for callgrind, and prints the compiler. Exits with 77 where it has no such instruction set.
// unpack_once: prints a sensor type for each layout that is not a memcpy.

#include "compiler_name.h"
#include "frame_unpacking.h"
#include "kernels/group_split.h"
#include "sensor_numbers.h"

#ifdef ZRN_HAVE_HIGHWAY
#include <hwy/targets.h>
#endif

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace
{

constexpr int unavailable = 77;

struct Frame {
    FrameLayout layout;
    int width;
    int height;
    std::vector<unsigned char> packed;
    std::vector<unsigned char> imageA;
    std::vector<unsigned char> imageB;
};

void unpack(Frame& frame)
{
    unpackFrame(frame.layout, frame.packed.data(), frame.width, frame.height, frame.imageA.data(),
                frame.imageB.data());
}

[[gnu::noinline]] void unpackCounted(Frame& frame)
{
    unpack(frame);
}

/// Lets the kernels use this instruction set and no other.
bool choose([[maybe_unused]] std::string_view instructionSet)
{
#ifdef ZRN_HAVE_HIGHWAY
    for (std::int64_t rest = hwy::SupportedTargets(); rest != 0; rest &= rest - 1) {
        const std::int64_t target = rest & -rest;
        if (instructionSet == hwy::TargetName(target)) {
            hwy::SetSupportedTargetsForTest(target);
            hwy::GetChosenTarget().DeInit();
        }
    }
#endif
    return instructionSet == kernels::instructionSet();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 1) {
        for (const int sensorType : sensorOfEachLayout()) {
            if (sensorTypeOf(sensorType).layout != FrameLayout::Single) {
                std::printf("%d\n", sensorType);
            }
        }
        return 0;
    }
    if (argc != 5) {
        std::fputs("usage: unpack_once INSTRUCTION_SET SENSOR_TYPE WIDTH HEIGHT\n", stderr);
        return 2;
    }
    if (!choose(argv[1])) {
        return unavailable;
    }
    const FrameLayout layout = sensorTypeOf(std::atoi(argv[2])).layout;
    const int width = std::atoi(argv[3]);
    const int height = std::atoi(argv[4]);
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    Frame frame{layout,
                width,
                height,
                std::vector<unsigned char>(packedSize(layout, width, height)),
                std::vector<unsigned char>(pixels),
                std::vector<unsigned char>(pixels)};
    // A header that asks for a move of both images.
    if (frame.packed.size() > 9) {
        frame.packed[8] = 0x30;
        frame.packed[9] = 0x30;
    }
    std::printf("%s %d\n", compilerName, compilerVersion);
    unpackCounted(frame);
    return 0;
}
