// The road of a frame through the driver: the callback beside memcpy into a ring of as many
// buffers, the grab of hosts that keep image pairs alive, and the hand-over between the two
// threads.

#include "allocation_count.h"
#include "fake_uvc.h"
#include "frame_trailer.h"
#include "zrn_camera.h"

#include <QList>
#include <QLoggingCategory>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;
using CameraSpace::ImageBlock;

constexpr int width = 1280;
constexpr int height = 1024;
constexpr std::size_t frameSize = 2 * std::size_t{width} * height;
constexpr int sensorType = 2;
constexpr std::size_t numberBase = 128; // bytes from 128 on spread into the bytes above

/// A camera that streams from the stand-in for libuvc, and the frame that it delivers.
class Stream
{
public:
    Stream()
        : m_bytes(frameSize, 1)
    {
        fakeuvc::Bus& bus = fakeuvc::Bus::instance();
        bus.reset();
        bus.addCamera(4711, sensorType, width, height);
        CZRNCamera::enumZRNCameraDevices();
        m_started = m_camera.connectDeviceByIndex(0) == ErrorCode::Success &&
                    m_camera.startStream(0) == ErrorCode::Success;
        m_frame.data = m_bytes.data();
        m_frame.data_bytes = m_bytes.size();
        m_frame.width = width;
        m_frame.height = height;
    }
    ~Stream()
    {
        m_camera.stopStream(0);
        m_camera.disconnectDevice();
        CZRNCamera::releaseZRNCameraLibrary();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    [[nodiscard]] bool started() const { return m_started; }
    CZRNCamera& camera() { return m_camera; }
    /// @param number told by the frame's header, below numberBase squared.
    void deliver(std::size_t number = 0)
    {
        m_bytes[2] = static_cast<unsigned char>(number % numberBase);
        m_bytes[3] = static_cast<unsigned char>(number / numberBase);
        CZRNCamera::frameTriggered(&m_frame, &m_camera);
    }

private:
    CZRNCamera m_camera;
    std::vector<unsigned char> m_bytes;
    uvc_frame m_frame{};
    bool m_started = false;
};

long pageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

void callback(benchmark::State& state)
{
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
    state.SetBytesProcessed(static_cast<std::int64_t>(frameSize) * state.iterations());
}
BENCHMARK(callback)->Name("callback")->Unit(benchmark::kMicrosecond);

void memcpyIntoRing(benchmark::State& state)
{
    constexpr std::size_t slots = 16;
    const std::vector<unsigned char> frame(frameSize, 1);
    std::vector<std::unique_ptr<unsigned char[]>> ring;
    for (std::size_t i = 0; i < slots; ++i) {
        ring.push_back(std::make_unique<unsigned char[]>(frameSize + 8));
    }
    std::size_t slot = 0;
    for (auto _ : state) {
        std::memcpy(ring[slot].get(), frame.data(), frameSize);
        benchmark::ClobberMemory();
        slot = (slot + 1) % slots;
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(frameSize) * state.iterations());
}
BENCHMARK(memcpyIntoRing)->Name("memcpy-ring")->Unit(benchmark::kMicrosecond);

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
    Stream stream;
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
        for (int i = 0; i < 32; ++i) {
            cycle();
        }
        const long faults = pageFaults();
        for (auto _ : state) {
            cycle();
        }
        state.counters["page faults"] = benchmark::Counter(
            static_cast<double>(pageFaults() - faults), benchmark::Counter::kAvgIterations);
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
    ->ArgNames({"data", "burst", "kept", "thread"})
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1, 8}, {0, 1}})
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

double quantile(const std::vector<double>& sorted, double q)
{
    return sorted.empty()
               ? 0.0
               : sorted[static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1))];
}

/// The number of the frame that an image comes from.
std::size_t frameNumber(const ImageBlock& image)
{
    const char* trailer = image.data.constData() + image.data.size() - frameTrailerSize;
    return static_cast<std::size_t>(trailer[0]) + numberBase * static_cast<std::size_t>(trailer[1]);
}

/// From the callback's return to the grab's return, at 100 frames a second.
void handOver(benchmark::State& state)
{
    Stream stream;
    if (!stream.started()) {
        state.SkipWithError("no stream");
        return;
    }
    std::vector<std::atomic<Clock::rep>> delivered(numberBase * numberBase);
    std::atomic<bool> running = true;
    std::thread usb([&] {
        auto next = Clock::now();
        for (std::size_t number = 0; running && number < delivered.size(); ++number) {
            stream.deliver(number);
            delivered[number] = Clock::now().time_since_epoch().count();
            delivered[number].notify_one();
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    });

    std::vector<double> latencies;
    for (auto _ : state) {
        QList<ImageBlock*> images;
        stream.camera().grabImage(images);
        const Clock::rep grabbed = Clock::now().time_since_epoch().count();
        if (images.isEmpty()) {
            state.SkipWithError("no frame");
            break;
        }
        const std::size_t number = frameNumber(*images.front());
        qDeleteAll(images);
        // The grab may be the first to return: the callback wakes it before it measures the rate.
        delivered[number].wait(0);
        const std::chrono::duration<double, std::micro> latency =
            Clock::duration(std::max<Clock::rep>(0, grabbed - delivered[number]));
        latencies.push_back(latency.count());
        state.SetIterationTime(latency.count() / 1e6);
    }
    running = false;
    usb.join();

    std::ranges::sort(latencies);
    state.counters["p50"] = quantile(latencies, 0.5);
    state.counters["p99"] = quantile(latencies, 0.99);
    state.counters["max"] = latencies.empty() ? 0.0 : latencies.back();
}
BENCHMARK(handOver)
    ->Name("hand-over")
    ->Unit(benchmark::kMicrosecond)
    ->UseManualTime()
    ->Iterations(300);

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
