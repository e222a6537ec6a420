// What a stream of the client library costs beside a bare grab loop: processor time of the whole
// process and page faults for each frame, of rounds that take turns. Runs on a camera, virtual or
// real: client_stream [FRAMES].

#include "checks/images.h"
#include "client/camera_object.h"
#include "client/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <vector>

namespace
{

constexpr int rounds = 5;

struct Cost {
    double microseconds = 0;
    double faults = 0;
};

Cost used()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return {microseconds(usage.ru_utime) + microseconds(usage.ru_stime),
            static_cast<double>(usage.ru_minflt)};
}

/// Of each frame. @param takeFrame takes one
template <typename TakeFrame>
Cost costOf(int frames, const TakeFrame& takeFrame)
{
    for (int i = 0; i < 10; ++i) {
        takeFrame(); // memory and threads are in place then
    }
    const Cost before = used();
    for (int i = 0; i < frames; ++i) {
        takeFrame();
    }
    const Cost after = used();
    return {(after.microseconds - before.microseconds) / frames,
            (after.faults - before.faults) / frames};
}

Cost bareLoop(zrn::Camera& camera, int frames)
{
    zrn::CameraObject& object = camera.object();
    zrn::check(object->startStream(0), "starting the stream");
    ContractSpace::Images images;
    const Cost cost = costOf(frames, [&] {
        while (ContractSpace::grab(*object, images) != ErrorCode::Success) {
        }
    });
    object->stopStream(0);
    return cost;
}

Cost libraryStream(const std::shared_ptr<zrn::Camera>& camera, int frames)
{
    zrn::StreamOptions options;
    options.policy = zrn::QueuePolicy::Block;
    zrn::Stream stream(camera, options);
    return costOf(frames, [&stream] {
        while (!stream.next(std::chrono::seconds(10))) {
        }
    });
}

Cost median(std::vector<Cost> costs)
{
    Cost result;
    std::ranges::sort(costs, {}, &Cost::microseconds);
    result.microseconds = costs[costs.size() / 2].microseconds;
    std::ranges::sort(costs, {}, &Cost::faults);
    result.faults = costs[costs.size() / 2].faults;
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 300;
    try {
        const auto camera = zrn::Camera::open();
        std::vector<Cost> bare;
        std::vector<Cost> library;
        for (int round = 0; round < rounds; ++round) {
            bare.push_back(bareLoop(*camera, frames));
            library.push_back(libraryStream(camera, frames));
        }
        const Cost bareCost = median(bare);
        const Cost libraryCost = median(library);
        std::printf("bare loop     %8.1f us, %6.2f page faults for each frame\n"
                    "library       %8.1f us, %6.2f page faults for each frame\n"
                    "more          %8.1f us, %6.2f page faults; ratio %.3f\n",
                    bareCost.microseconds, bareCost.faults, libraryCost.microseconds,
                    libraryCost.faults, libraryCost.microseconds - bareCost.microseconds,
                    libraryCost.faults - bareCost.faults,
                    libraryCost.microseconds / bareCost.microseconds);
    } catch (const zrn::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
