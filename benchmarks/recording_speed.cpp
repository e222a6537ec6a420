// Recording to a folder beside plain writes of as many bytes, which take turns:
// recording_speed FOLDER [FRAMES [ROUNDS]]. The files are removed.

#include "client/block_writer.h"
#include "client/error.h"
#include "client/recorder.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t width = 1280;
constexpr std::uint32_t height = 1024;
constexpr std::size_t imageBytes = std::size_t{width} * height + zrn::Image::trailerBytes;

/// More frames than the processor's caches hold.
std::vector<zrn::Frame> makeFrames()
{
    constexpr std::size_t count = 32;
    std::mt19937_64 random(1);
    std::vector<zrn::Frame> frames;
    for (std::size_t i = 0; i < count; ++i) {
        const auto memory = std::make_shared<std::vector<std::uint8_t>>(2 * imageBytes);
        std::ranges::generate(*memory, [&random] { return static_cast<std::uint8_t>(random()); });
        zrn::Frame frame;
        frame.width = width;
        frame.height = height;
        frame.imageCount = 2;
        frame.stored[0] = {'A', std::span(*memory).first(imageBytes)};
        frame.stored[1] = {'B', std::span(*memory).last(imageBytes)};
        frame.memory = memory;
        frames.push_back(frame);
    }
    return frames;
}

double processorSeconds()
{
    struct rusage used {
    };
    ::getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

struct Cost {
    double seconds = 0;
    double processorSeconds = 0;
    double bytes = 0;
};

/// Writes as `dd bs=4M oflag=direct conv=fsync` does, or without oflag where that is refused.
Cost writePlainly(const std::string& path, std::uint64_t bytes, bool& isDirect)
{
    void* const memory = ::mmap(nullptr, zrn::BlockWriter::bufferBytes, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    const Clock::time_point begin = Clock::now();
    const double processorBegin = processorSeconds();
    int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_DIRECT, 0600);
    isDirect = file >= 0;
    if (!isDirect) {
        file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    std::uint64_t written = 0;
    while (written < bytes) {
        const ssize_t count = ::write(file, memory, zrn::BlockWriter::bufferBytes);
        if (count <= 0) {
            std::perror(path.c_str());
            std::exit(1);
        }
        written += static_cast<std::uint64_t>(count);
    }
    ::fsync(file);
    ::close(file);
    const Cost cost{std::chrono::duration<double>(Clock::now() - begin).count(),
                    processorSeconds() - processorBegin, static_cast<double>(written)};
    ::munmap(memory, zrn::BlockWriter::bufferBytes);
    ::unlink(path.c_str());
    return cost;
}

Cost record(const std::string& path, const std::vector<zrn::Frame>& frames, std::uint64_t count)
{
    const Clock::time_point begin = Clock::now();
    const double processorBegin = processorSeconds();
    zrn::Recorder recorder(path, "{}");
    for (std::uint64_t i = 0; i < count; ++i) {
        zrn::Frame frame = frames[i % frames.size()];
        frame.step.number = static_cast<std::uint32_t>(i);
        frame.arrival = Clock::now();
        recorder.add(std::move(frame));
    }
    recorder.finish();
    const zrn::RecordingProgress progress = recorder.progress();
    const Cost cost{std::chrono::duration<double>(Clock::now() - begin).count(),
                    processorSeconds() - processorBegin, static_cast<double>(progress.bytes)};
    ::unlink(path.c_str());
    if (progress.frames != count) {
        std::fprintf(stderr, "%s\n", progress.error.c_str());
        std::exit(1);
    }
    return cost;
}

double median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs("usage: recording_speed FOLDER [FRAMES [ROUNDS]]\n", stderr);
        return 2;
    }
    const std::string path = std::string(argv[1]) + "/speed.zrnrec";
    const auto frames = static_cast<std::uint64_t>(argc > 2 ? std::atoi(argv[2]) : 400);
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 5;
    const std::vector<zrn::Frame> made = makeFrames();
    std::vector<double> plain;
    std::vector<double> recorded;
    std::vector<double> shares;
    std::vector<double> processor;
    bool isDirect = false;
    try {
        for (int i = 0; i < rounds; ++i) {
            const Cost recording = record(path, made, frames);
            const Cost writing =
                writePlainly(path, static_cast<std::uint64_t>(recording.bytes), isDirect);
            recorded.push_back(recording.bytes / recording.seconds / 1e6);
            plain.push_back(writing.bytes / writing.seconds / 1e6);
            shares.push_back(recorded.back() / plain.back());
            processor.push_back(recording.processorSeconds / static_cast<double>(frames) * 1e3);
        }
    } catch (const zrn::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    std::printf("{\"frames\": %llu, \"direct\": %s, \"plain\": %.0f, \"recorded\": %.0f, "
                "\"share\": %.3f, \"processorMs\": %.2f}\n",
                static_cast<unsigned long long>(frames), isDirect ? "true" : "false", median(plain),
                median(recorded), median(shares), median(processor));
    return 0;
}
