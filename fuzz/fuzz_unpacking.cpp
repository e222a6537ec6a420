// Any geometry, sensor type and frame content: nothing outside the buffers is touched, every byte
// of the images is written, and rows move within their image.

#include "frame_trailer.h"
#include "frame_unpacking.h"
#include "row_alignment.h"
#include "sensor_types.h"

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr int longestSide = 300;
    FuzzedDataProvider input(data, size);
    const int sensorType = input.ConsumeIntegralInRange(-1, sensorTypes.back().number + 2);
    const int width = input.ConsumeIntegralInRange(0, longestSide);
    const int height = input.ConsumeIntegralInRange(0, longestSide);
    const FrameLayout layout = sensorTypeOf(sensorType).layout;

    std::vector<std::uint8_t> frame = input.ConsumeRemainingBytes<std::uint8_t>();
    static_cast<void>(frameTrailer(frame));
    frame.resize(packedSize(layout, width, height));
    frame.shrink_to_fit();

    // Two passes over different garbage: a byte that is not written differs.
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint8_t> a[2] = {std::vector<std::uint8_t>(pixels, 0x11),
                                      std::vector<std::uint8_t>(pixels, 0x22)};
    std::vector<std::uint8_t> b[2] = {a[0], a[1]};
    for (int pass = 0; pass < 2; ++pass) {
        unpackFrame(layout, frame.data(), width, height, a[pass].data(), b[pass].data());
        static_cast<void>(realignRows(a[pass], width, height));
    }
    if (a[0] != a[1] || (layout != FrameLayout::Single && b[0] != b[1])) {
        std::abort();
    }
    return 0;
}
