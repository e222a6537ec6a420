// The road of a frame through the driver: the callback beside memcpy into a ring of as many
// buffers, and the grab of hosts that keep image pairs alive.

#include "allocation_count.h"
#include "stream.h"

#include <QList>
#include <QLoggingCategory>
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using CameraSpace::ImageBlock;

void callback(benchmark::State& state)
{
    const Bus bus;
    Stream stream;
    if (!stream.started()) {
        state.SkipWithError("no stream");
        return;
    }
    constexpr int warmUp = 32; // past the ring's first lap and the logged frames
    for (int i = 0; i < warmUp; ++i) {
        stream.deliver();
    }
    const std::size_t allocations = allocationCount();
    for (auto _ : state) {
        stream.deliver();
    }
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(allocationCount() - allocations), benchmark::Counter::kAvgIterations);
}
BENCHMARK(callback)->Name("callback")->Unit(benchmark::kMicrosecond);

void memcpyIntoRing(benchmark::State& state)
{
    constexpr std::size_t slots = 16;
    const std::size_t size = usualGeometry.frameSize();
    const std::vector<unsigned char> frame(size, 1);
    std::vector<std::unique_ptr<unsigned char[]>> ring;
    for (std::size_t i = 0; i < slots; ++i) {
        ring.push_back(std::make_unique<unsigned char[]>(size + 8));
    }
    std::size_t slot = 0;
    for (auto _ : state) {
        std::memcpy(ring[slot].get(), frame.data(), size);
        benchmark::ClobberMemory();
        slot = (slot + 1) % slots;
    }
}
BENCHMARK(memcpyIntoRing)->Name("memcpy-ring")->Unit(benchmark::kMicrosecond);

long pageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

/// Bytes of memory that the process holds. Allocates nothing: a block of its own between the images
/// would move the next of them to fresh pages.
double residentSize()
{
    std::array<char, 128> text{};
    const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    const bool isRead = read(file, text.data(), text.size() - 1) > 0;
    close(file);
    long total = 0;
    long resident = 0;
    if (!isRead || std::sscanf(text.data(), "%ld %ld", &total, &resident) != 2) {
        return 0;
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// How a host treats what it grabs.
struct Host {
    bool callsData;     ///< calls the mutable data() of each image
    bool deletesAtOnce; ///< keeps pairs until there are too many, then deletes all; else the oldest
    std::size_t keptPairs;
    bool grabsInThread; ///< in a thread of its own, which has its own part of the heap
};

/// One frame through the driver and back: delivered, grabbed, kept, deleted.
void grab(benchmark::State& state)
{
    const Host host{state.range(0) != 0, state.range(1) != 0,
                    static_cast<std::size_t>(state.range(2)), state.range(3) != 0};
    const Geometry geometry{static_cast<int>(state.range(4)), static_cast<int>(state.range(5))};
    const Bus bus(1, geometry);
    Stream stream(0, geometry);
    if (!stream.started()) {
        state.SkipWithError("no stream");
        return;
    }
    std::deque<std::unique_ptr<ImageBlock>> kept;
    const auto cycle = [&] {
        stream.deliver();
        QList<ImageBlock*> images;
        stream.camera().grabImage(images);
        for (ImageBlock* image : images) {
            kept.emplace_back(image);
            if (host.callsData) {
                benchmark::DoNotOptimize(image->data.data());
            } else {
                benchmark::DoNotOptimize(image->data.constData());
            }
        }
        if (kept.size() <= 2 * host.keptPairs) {
            return;
        }
        const std::ptrdiff_t surplus = host.deletesAtOnce ? std::ssize(kept) : 2;
        kept.erase(kept.begin(), kept.begin() + surplus);
    };
    const auto run = [&] {
        // The ring's first lap, and until the heap has found its shape.
        constexpr int warmUp = 100;
        for (int i = 0; i < warmUp; ++i) {
            cycle();
        }
        const long faults = pageFaults();
        const double size = residentSize();
        for (auto _ : state) {
            cycle();
        }
        state.counters["page faults"] = benchmark::Counter(
            static_cast<double>(pageFaults() - faults), benchmark::Counter::kAvgIterations);
        state.counters["growth"] = residentSize() - size;
        kept.clear();
    };
    if (host.grabsInThread) {
        std::thread(run).join();
    } else {
        run();
    }
}
BENCHMARK(grab)
    ->Name("grab")
    ->ArgNames({"data", "burst", "kept", "thread", "width", "height"})
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1, 8}, {0, 1}, {1280}, {1024}})
    ->ArgsProduct({{0, 1}, {0}, {8}, {0, 1}, {2616}, {1991}})
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
