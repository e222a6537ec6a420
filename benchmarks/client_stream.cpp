// What a stream of the client library costs beside a bare grab loop, for each frame: processor time
// of the whole process in the least disturbed round, page faults, and the memory that is allocated,
// in which a copy would show. Rounds take turns. Runs on a camera, virtual or real: client_stream
// [FRAMES [ROUNDS]].

#include "allocation_count.h"
#include "checks/images.h"
#include "client/camera_object.h"
#include "client/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <sys/resource.h>
#include <vector>

namespace
{

constexpr int settling = 10; ///< frames until memory and threads are in place

struct Cost {
    double microseconds = 0;
    double faults = 0;
    double kilobytes = 0; ///< allocated
};

Cost used()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return {microseconds(usage.ru_utime) + microseconds(usage.ru_stime),
            static_cast<double>(usage.ru_minflt), static_cast<double>(allocatedBytes()) / 1000};
}

Cost ofEach(int frames, const Cost& before, const Cost& after)
{
    return {(after.microseconds - before.microseconds) / frames,
            (after.faults - before.faults) / frames, (after.kilobytes - before.kilobytes) / frames};
}

/// @param takeFrame takes one
template <typename TakeFrame>
Cost costOf(int frames, const TakeFrame& takeFrame)
{
    for (int i = 0; i < settling; ++i) {
        takeFrame();
    }
    const Cost before = used();
    for (int i = 0; i < frames; ++i) {
        takeFrame();
    }
    return ofEach(frames, before, used());
}

Cost bareLoop(const std::shared_ptr<zrn::Camera>& camera, int frames)
{
    zrn::CameraObject& object = camera->object();
    zrn::check(object->startStream(0), "starting the stream");
    ContractSpace::Images images;
    const Cost cost = costOf(frames, [&] {
        while (ContractSpace::grab(*object, images) != ErrorCode::Success) {
        }
    });
    object->stopStream(0);
    return cost;
}

Cost callback(const std::shared_ptr<zrn::Camera>& camera, int frames)
{
    int taken = 0;
    Cost before;
    std::promise<Cost> after;
    zrn::StreamOptions options;
    options.onFrame = [&](const zrn::Frame&) {
        ++taken;
        if (taken == settling) {
            before = used();
        } else if (taken == settling + frames) {
            after.set_value(used());
        }
    };
    const zrn::Stream stream(camera, options);
    const Cost end = after.get_future().get();
    return ofEach(frames, before, end);
}

Cost queue(const std::shared_ptr<zrn::Camera>& camera, int frames)
{
    zrn::StreamOptions options;
    options.policy = zrn::QueuePolicy::Block;
    zrn::Stream stream(camera, options);
    return costOf(frames, [&stream] {
        while (!stream.next(std::chrono::seconds(10))) {
        }
    });
}

struct Way {
    const char* name;
    Cost (*run)(const std::shared_ptr<zrn::Camera>& camera, int frames);
    std::vector<Cost> costs;

    /// The figure at this part of its way from the least to the most.
    [[nodiscard]] double figure(double Cost::*member, double part) const
    {
        std::vector<double> figures;
        for (const Cost& cost : costs) {
            figures.push_back(cost.*member);
        }
        std::ranges::sort(figures);
        return figures[static_cast<std::size_t>(part * static_cast<double>(figures.size()))];
    }
};

} // namespace

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 20;
    Way ways[] = {{"bare loop", bareLoop, {}}, {"callback", callback, {}}, {"queue", queue, {}}};
    try {
        const auto camera = zrn::Camera::open();
        for (int round = 0; round < rounds; ++round) {
            for (Way& way : ways) {
                way.costs.push_back(way.run(camera, frames));
            }
        }
    } catch (const zrn::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
    std::printf("for each frame      us    more   ratio   page faults   kB allocated\n");
    const double bare = ways[0].figure(&Cost::microseconds, 0);
    for (const Way& way : ways) {
        const double microseconds = way.figure(&Cost::microseconds, 0);
        std::printf("%-14s%8.1f%8.1f%8.3f%14.2f%15.1f\n", way.name, microseconds,
                    microseconds - bare, microseconds / bare, way.figure(&Cost::faults, 0.5),
                    way.figure(&Cost::kilobytes, 0.5));
    }
    return EXIT_SUCCESS;
}
