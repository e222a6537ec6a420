// Unpacking beside memcpy of the same number of bytes, the plain loop and, for the plain
// interleave, libyuv and OpenCV. Names: <work>/type:<sensor type>/<width>x<height>/<hot or cold>.
//
// "hot" works on the same memory each time; "cold" goes round a ring of frames and one of image
// pairs, as the driver does, which together are larger than most caches.

#include "compiler_vectors.h"
#include "plain_unpacking.h"
#include "sensor_numbers.h"

#include <benchmark/benchmark.h>
#ifdef ZRN_HAVE_LIBYUV
#include <libyuv.h>
#endif
#ifdef ZRN_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{

struct Geometry {
    int width;
    int height;

    [[nodiscard]] std::size_t pixels() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
    [[nodiscard]] std::string name() const
    {
        return std::to_string(width) + "x" + std::to_string(height);
    }
};

constexpr std::size_t trailerSize = 8;
// Qt puts 24 bytes before those of an image, which therefore start where no vector is at home. Half
// a page more keeps frame and image apart: where a copy's target lies few bytes behind its source
// in their pages, some processors' string instructions, and with them memcpy, take ten times as
// long.
constexpr std::size_t imageHeader = 24 + 2048;

/// Blocks of memory that are used in turn.
class Ring
{
public:
    /// @param header bytes of each block before those that are used.
    Ring(std::size_t count, std::size_t size, std::size_t header = 0)
        : m_header(header)
    {
        for (std::size_t i = 0; i < count; ++i) {
            m_blocks.push_back(std::make_unique<unsigned char[]>(header + size));
        }
    }

    unsigned char* next()
    {
        m_position = (m_position + 1) % m_blocks.size();
        return m_blocks[m_position].get() + m_header;
    }

private:
    std::size_t m_header;
    std::vector<std::unique_ptr<unsigned char[]>> m_blocks;
    std::size_t m_position = 0;
};

/// The frames and images that the benchmarks of one geometry work on.
struct Buffers {
    Buffers(Geometry geometry, bool cold)
        : Buffers(geometry, cold ? coldFrames(geometry) : 1, cold ? coldFrames(geometry) / 2 : 1)
    {
    }
    Buffers(Geometry geometry, std::size_t frameCount, std::size_t imageCount)
        : frames(frameCount, 2 * geometry.pixels() + trailerSize)
        , imagesA(imageCount, geometry.pixels() + trailerSize, imageHeader)
        // As in the driver's heap, where most sizes of images are odd multiples of 16.
        , imagesB(imageCount, geometry.pixels() + trailerSize, imageHeader + 16)
    {
        constexpr std::size_t shiftingHeader = std::size_t{2} * 4;
        for (std::size_t i = 0; i < frameCount; ++i) {
            // The rows of both images are to move by two.
            std::memset(frames.next() + shiftingHeader, 0x30, 2);
        }
    }

    /// The buffers that all benchmarks of this geometry share.
    static Buffers& shared(Geometry geometry, bool cold)
    {
        static std::map<std::string, Buffers> all;
        return all.try_emplace(geometry.name() + (cold ? "/cold" : "/hot"), geometry, cold)
            .first->second;
    }

    Ring frames;
    Ring imagesA;
    Ring imagesB;

private:
    /// As many as the driver's ring has, and of small frames so many that no cache holds them.
    static std::size_t coldFrames(Geometry geometry)
    {
        constexpr std::size_t ringSlots = 16;
        constexpr std::size_t largestCache = std::size_t{64} << 20;
        return std::max(ringSlots, 2 * (largestCache / (4 * geometry.pixels())));
    }
};

using Work = std::function<void(const unsigned char* frame, unsigned char* a, unsigned char* b)>;

/// @param label what the tables call the work.
void registerWork(const std::string& name, Geometry geometry, std::size_t bytes, const Work& work,
                  const std::string& label = {})
{
    for (const bool cold : {false, true}) {
        const std::string fullName = name + "/" + geometry.name() + (cold ? "/cold" : "/hot");
        benchmark::RegisterBenchmark(fullName.c_str(), [geometry, bytes, work, label,
                                                        cold](benchmark::State& state) {
            Buffers& buffers = Buffers::shared(geometry, cold);
            for (auto _ : state) {
                work(buffers.frames.next(), buffers.imagesA.next(), buffers.imagesB.next());
                benchmark::ClobberMemory();
            }
            state.SetLabel(label);
            state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
        })->Unit(benchmark::kMicrosecond);
    }
}

void registerOthers(Geometry geometry)
{
    const std::size_t pixels = geometry.pixels();
    // To both images, so that it writes to the same memory as the others.
    registerWork("memcpy", geometry, 2 * pixels,
                 [pixels](const unsigned char* frame, unsigned char* a, unsigned char* b) {
                     std::memcpy(a, frame, pixels);
                     std::memcpy(b, frame + pixels, pixels);
                 });
    registerWork("memcpy-half", geometry, pixels,
                 [pixels](const unsigned char* frame, unsigned char* a, unsigned char* /*b*/) {
                     std::memcpy(a, frame, pixels);
                 });
#ifdef ZRN_HAVE_LIBYUV
    registerWork("libyuv", geometry, 2 * pixels,
                 [geometry](const unsigned char* frame, unsigned char* a, unsigned char* b) {
                     libyuv::SplitUVPlane(frame, 2 * geometry.width, a, geometry.width, b,
                                          geometry.width, geometry.width, geometry.height);
                 });
#endif
#ifdef ZRN_HAVE_OPENCV
    registerWork("opencv", geometry, 2 * pixels,
                 [geometry](const unsigned char* frame, unsigned char* a, unsigned char* b) {
                     // OpenCV takes no constant memory, but does not write to a source.
                     const cv::Mat packed(geometry.height, geometry.width, CV_8UC2,
                                          const_cast<unsigned char*>(frame));
                     std::array<cv::Mat, 2> planes = {
                         cv::Mat(geometry.height, geometry.width, CV_8UC1, a),
                         cv::Mat(geometry.height, geometry.width, CV_8UC1, b)};
                     cv::split(packed, planes.data());
                 });
#endif
}

void registerType(int sensorType, Geometry geometry)
{
    const FrameLayout layout = sensorTypeOf(sensorType).layout;
    constexpr int stripsWidth = 1280;
    if (layout == FrameLayout::Strips && geometry.width != stripsWidth) {
        return;
    }
    const std::size_t bytes = packedSize(layout, geometry.width, geometry.height);
    const std::string type = "/type:" + std::to_string(sensorType);
    registerWork(
        "unpack" + type, geometry, bytes,
        [layout, geometry](const unsigned char* frame, unsigned char* a, unsigned char* b) {
            unpackFrame(layout, frame, geometry.width, geometry.height, a, b);
        },
        layoutName(layout));
    registerWork(
        "plain" + type, geometry, bytes,
        [layout, geometry](const unsigned char* frame, unsigned char* a, unsigned char* b) {
            unpackPlainly(layout, frame, geometry.width, geometry.height, a, b);
        });
    constexpr int vectorWidth = 32;
    if ((layout == FrameLayout::Interleaved || layout == FrameLayout::BothEnds) &&
        geometry.width % vectorWidth == 0) {
        registerWork(
            "vectors" + type, geometry, bytes,
            [layout, geometry](const unsigned char* frame, unsigned char* a, unsigned char* b) {
                unpackWithCompilerVectors(layout, frame, geometry.width, geometry.height, a, b);
            });
    }
}

} // namespace

int main(int argc, char** argv)
{
#ifdef ZRN_HAVE_OPENCV
    // One thread, as for the others.
    cv::setNumThreads(1);
#endif
    for (const Geometry geometry : {Geometry{1280, 1024}, {640, 480}, {2616, 1991}}) {
        registerOthers(geometry);
        for (const int sensorType : sensorOfEachLayout()) {
            registerType(sensorType, geometry);
        }
    }

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
