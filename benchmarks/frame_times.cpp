// How far the times of frames are behind the moment at which this process had their first
// transfer, which the virtual camera notes before it lets go of it. Runs under zrnsim:
// frame_times [FRAMES [COMPUTING-THREADS]].

#include "client/stream.h"
#include "virtual_camera.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

namespace
{

/// Threads that compute.
class Load
{
public:
    explicit Load(int threads)
    {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this] {
                std::uint64_t value = 1;
                while (!m_ends.load(std::memory_order_relaxed)) {
                    value = value * 6364136223846793005U + 1;
                    m_result.store(value, std::memory_order_relaxed);
                }
            });
        }
    }
    ~Load()
    {
        m_ends = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> m_ends = false;
    std::atomic<std::uint64_t> m_result = 0;
    std::vector<std::thread> m_threads;
};

double microseconds(std::vector<double>& seconds, double share)
{
    const auto position = seconds.begin() + static_cast<std::ptrdiff_t>(
                                                share * static_cast<double>(seconds.size() - 1));
    std::nth_element(seconds.begin(), position, seconds.end());
    return *position * 1e6;
}

bool isOfPayloads(const zrn::Frame& frame)
{
    return frame.times.source == zrn::FrameTimes::Source::Payload;
}

void print(const char* name, std::vector<double>& seconds)
{
    std::printf("\"%s\": {\"p50\": %.1f, \"p99\": %.1f, \"max\": %.1f}", name,
                microseconds(seconds, 0.5), microseconds(seconds, 0.99),
                microseconds(seconds, 1.0));
}

} // namespace

int main(int argc, char** argv)
{
    const int wanted = argc > 1 ? std::atoi(argv[1]) : 300;
    const int threads = argc > 2 ? std::atoi(argv[2]) : 0;
    constexpr int warmUp = 10;
    std::map<std::uint32_t, zrn::Frame> frames; // without their images
    std::size_t withPayloads = 0;
    {
        const Load load(threads);
        zrn::Stream stream(zrn::Camera::open());
        for (int i = 0; i < wanted + warmUp; ++i) {
            std::optional<zrn::Frame> frame = stream.next(std::chrono::seconds(5));
            if (!frame) {
                std::fprintf(stderr, "no frame\n");
                return 1;
            }
            if (i >= warmUp) {
                withPayloads += isOfPayloads(*frame) ? 1U : 0U;
                frame->memory.reset();
                frames.emplace(frame->step.number, std::move(*frame));
            }
        }
    }
    std::vector<double> relays;
    std::vector<double> payloads;
    std::vector<double> handOvers;
    std::vector<double> arrivals;
    for (const SentFrame& sent : VirtualCamera().sentFrames()) {
        const auto found = frames.find(sent.request.frameNumber);
        if (found == frames.end() || !isOfPayloads(found->second) || !sent.taken) {
            continue;
        }
        const auto since = [&sent](zrn::FrameTimes::time_point time) {
            return std::chrono::duration<double>(time.time_since_epoch()).count() - *sent.taken;
        };
        relays.push_back(*sent.taken - sent.time);
        payloads.push_back(since(found->second.times.firstPayload));
        handOvers.push_back(since(found->second.times.handOver));
        arrivals.push_back(since(found->second.arrival));
    }
    if (payloads.empty()) {
        std::fprintf(stderr,
                     "no frame with the times of its payloads is in the camera's account\n");
        return 1;
    }
    const double share = static_cast<double>(withPayloads) / wanted;
    std::printf("{\"frames\": %zu, \"payloadShare\": %.4f, ", payloads.size(), share);
    print("relay", relays);
    std::printf(", ");
    print("firstPayload", payloads);
    std::printf(", ");
    print("handOver", handOvers);
    std::printf(", ");
    print("arrival", arrivals);
    std::printf("}\n");
    return 0;
}
