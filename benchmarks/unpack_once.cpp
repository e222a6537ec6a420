// unpack_once SENSOR_TYPE WIDTH HEIGHT: unpacks one frame inside of unpackCounted, for callgrind.
// The instruction set has been chosen, and printed, before that.

#include "frame_unpacking.h"
#include "kernels/group_split.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{

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

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fputs("usage: unpack_once SENSOR_TYPE WIDTH HEIGHT\n", stderr);
        return 2;
    }
    const FrameLayout layout = layoutOf(std::atoi(argv[1]));
    const int width = std::atoi(argv[2]);
    const int height = std::atoi(argv[3]);
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    Frame frame{layout,
                width,
                height,
                std::vector<unsigned char>(packedSize(layout, width, height)),
                std::vector<unsigned char>(pixels),
                std::vector<unsigned char>(pixels)};
    // A header that asks for a shift of both images.
    if (frame.packed.size() > 9) {
        frame.packed[8] = 0x30;
        frame.packed[9] = 0x30;
    }
    std::puts(kernels::instructionSet());
    unpackCounted(frame);
    return 0;
}
