// From the callback to the grab: the latency between their returns, and the frames that go through
// in a second, for several cameras at once, on an idle machine and beside a thread that computes.

#include "stream.h"

#include <QList>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <deque>
#include <memory>
#include <numeric>
#include <semaphore>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;
using CameraSpace::ImageBlock;

/// A thread that keeps one core and its memory busy for as long as this lives.
class Load
{
public:
    explicit Load(bool wanted)
    {
        if (wanted) {
            m_thread = std::jthread([](const std::stop_token& stop) {
                std::vector<unsigned char> bytes(std::size_t{16} * 1024 * 1024, 1);
                while (!stop.stop_requested()) {
                    std::memmove(bytes.data(), bytes.data() + bytes.size() / 2, bytes.size() / 2);
                    benchmark::DoNotOptimize(
                        std::accumulate(bytes.begin(), bytes.begin() + 1'000'000, 0U));
                }
            });
        }
    }

private:
    std::jthread m_thread;
};

/// The streams of a bus; empty when one of them did not start.
std::deque<Stream> startStreams(int count)
{
    std::deque<Stream> streams;
    for (int i = 0; i < count; ++i) {
        if (!streams.emplace_back(i).started()) {
            streams.clear();
            break;
        }
    }
    return streams;
}

/// Microseconds from the callback's return to the grab's, of frames that come at 100 a second.
class HandOver
{
public:
    static constexpr std::size_t frames = 500;

    explicit HandOver(Stream& stream)
        : m_stream(stream)
        , m_returned(frames)
        , m_usb([this] { deliver(); })
        , m_host([this] { grab(); })
    {
    }
    /// Waits for the last frame.
    const std::vector<double>& latencies()
    {
        m_host.join();
        m_usb.join();
        return m_latencies;
    }

private:
    void deliver()
    {
        auto next = Clock::now();
        for (std::size_t number = 0; number < frames; ++number) {
            m_stream.deliver(number);
            m_returned[number] = Clock::now().time_since_epoch().count();
            m_returned[number].notify_one();
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    }

    void grab()
    {
        std::size_t number = 0;
        do {
            QList<ImageBlock*> images;
            if (m_stream.camera().grabImage(images) != ErrorCode::Success) {
                return;
            }
            const Clock::rep grabbed = Clock::now().time_since_epoch().count();
            number = Stream::numberOf(*images.front());
            qDeleteAll(images);
            // The grab may be the first to return: the callback still measures the rate.
            m_returned[number].wait(0);
            const std::chrono::duration<double, std::micro> latency =
                Clock::duration(std::max<Clock::rep>(0, grabbed - m_returned[number]));
            m_latencies.push_back(latency.count());
        } while (number + 1 < frames);
    }

    Stream& m_stream;
    std::vector<std::atomic<Clock::rep>> m_returned;
    std::vector<double> m_latencies;
    std::thread m_usb;
    std::thread m_host;
};

double quantile(const std::vector<double>& sorted, double q)
{
    return sorted[static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1))];
}

void handOver(benchmark::State& state)
{
    const auto cameras = static_cast<int>(state.range(0));
    const Bus bus(cameras);
    std::deque<Stream> streams = startStreams(cameras);
    if (streams.empty()) {
        state.SkipWithError("no stream");
        return;
    }
    const Load load(state.range(1) != 0);
    std::vector<double> latencies;
    for (auto _ : state) {
        std::deque<HandOver> handOvers;
        for (Stream& stream : streams) {
            handOvers.emplace_back(stream);
        }
        for (HandOver& each : handOvers) {
            const std::vector<double>& more = each.latencies();
            latencies.insert(latencies.end(), more.begin(), more.end());
        }
    }
    if (latencies.empty()) {
        state.SkipWithError("no frame");
        return;
    }
    std::ranges::sort(latencies);
    state.counters["p50"] = quantile(latencies, 0.5);
    state.counters["p99"] = quantile(latencies, 0.99);
    state.counters["max"] = latencies.back();
    state.counters["frames"] = static_cast<double>(latencies.size());
}
BENCHMARK(handOver)
    ->Name("hand-over")
    ->ArgNames({"cameras", "load"})
    ->ArgsProduct({{1, 2, 4}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

/// Frames that go through callback, grab and deletion without a loss, as fast as they can.
class Throughput
{
public:
    static constexpr std::size_t frames = 1000;

    explicit Throughput(Stream& stream)
        : m_usb([this, &stream] {
            for (std::size_t i = 0; i < frames; ++i) {
                m_room.acquire();
                stream.deliver();
            }
        })
        , m_host([this, &stream] {
            for (std::size_t i = 0; i < frames; ++i) {
                QList<ImageBlock*> images;
                const ErrorCode result = stream.camera().grabImage(images);
                m_grabbed += result == ErrorCode::Success ? 1 : 0;
                qDeleteAll(images);
                m_room.release();
            }
        })
    {
    }
    /// @return how many frames were grabbed
    std::size_t join()
    {
        m_usb.join();
        m_host.join();
        return m_grabbed;
    }

private:
    std::size_t m_grabbed = 0;
    std::counting_semaphore<> m_room{15}; // one slot less than the ring has
    std::thread m_usb;
    std::thread m_host;
};

void throughput(benchmark::State& state)
{
    const auto cameras = static_cast<int>(state.range(0));
    const Bus bus(cameras);
    std::deque<Stream> streams = startStreams(cameras);
    if (streams.empty()) {
        state.SkipWithError("no stream");
        return;
    }
    const Load load(state.range(1) != 0);
    std::size_t frames = 0;
    for (auto _ : state) {
        std::deque<Throughput> all;
        for (Stream& stream : streams) {
            all.emplace_back(stream);
        }
        for (Throughput& each : all) {
            frames += each.join();
        }
    }
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}
BENCHMARK(throughput)
    ->Name("throughput")
    ->ArgNames({"cameras", "load"})
    ->ArgsProduct({{1, 2, 4}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

} // namespace
