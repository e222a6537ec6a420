// What a camera's frames cost in a GStreamer pipeline beside a stream of the client library:
// processor time of the whole process and page faults for each frame, of rounds that take turns.
// Runs on a camera, virtual or real: gstreamer_source [FRAMES]. Fails beyond 100 us, or a page
// fault, more.

#include "client/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gst/gst.h>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{

constexpr int rounds = 5;
constexpr double allowedMicroseconds = 100;
constexpr double allowedFaults = 1;
constexpr int warmUp = 10; // memory and threads are in place then

struct Cost {
    double microseconds = 0; ///< of processor time
    double faults = 0;       ///< page faults
};

/// Of the whole process until now.
Cost usedCost()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return {microseconds(usage.ru_utime) + microseconds(usage.ru_stime),
            static_cast<double>(usage.ru_minflt)};
}

/// The medians of both.
Cost median(std::vector<Cost> costs)
{
    Cost result;
    std::ranges::sort(costs, {}, &Cost::microseconds);
    result.microseconds = costs[costs.size() / 2].microseconds;
    std::ranges::sort(costs, {}, &Cost::faults);
    result.faults = costs[costs.size() / 2].faults;
    return result;
}

Cost difference(const Cost& before, const Cost& after, int frames)
{
    return {(after.microseconds - before.microseconds) / frames,
            (after.faults - before.faults) / frames};
}

Cost libraryStream(int frames)
{
    zrn::Stream stream(zrn::Camera::open(), {.policy = zrn::QueuePolicy::Block});
    Cost before;
    for (int i = 0; i < frames + warmUp; ++i) {
        before = i == warmUp ? usedCost() : before;
        while (!stream.next(std::chrono::seconds(10))) {
        }
    }
    return difference(before, usedCost(), frames);
}

guint64 framesThrough(GstElement* source)
{
    GstStructure* statistics = nullptr;
    g_object_get(source, "statistics", &statistics, nullptr);
    guint64 frames = 0;
    gst_structure_get_uint64(statistics, "frames", &frames);
    gst_structure_free(statistics);
    return frames;
}

Cost pipeline(int frames)
{
    const std::unique_ptr<GstElement, decltype(&gst_object_unref)> all(
        gst_parse_launch("zrnsrc name=source queue-policy=block "
                         "source.src_a ! fakesink sync=false async=false "
                         "source.src_b ! fakesink sync=false async=false",
                         nullptr),
        gst_object_unref);
    GstElement* source = gst_bin_get_by_name(GST_BIN(all.get()), "source");
    gst_element_set_state(all.get(), GST_STATE_PLAYING);
    const auto waitFor = [source](guint64 count) {
        while (framesThrough(source) < count) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200)); // each look costs, too
        }
        return framesThrough(source);
    };
    const guint64 begin = waitFor(warmUp);
    const Cost before = usedCost();
    const guint64 end = waitFor(begin + static_cast<guint64>(frames));
    const Cost cost = difference(before, usedCost(), static_cast<int>(end - begin));
    gst_element_set_state(all.get(), GST_STATE_NULL);
    gst_object_unref(source);
    return cost;
}

} // namespace

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 300;
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    if (!gst_plugin_load_file(ELEMENT, &error)) {
        std::fprintf(stderr, "%s\n", error->message);
        return EXIT_FAILURE;
    }
    try {
        std::vector<Cost> library;
        std::vector<Cost> element;
        for (int round = 0; round < rounds; ++round) {
            library.push_back(libraryStream(frames));
            element.push_back(pipeline(frames));
        }
        const Cost libraryCost = median(library);
        const Cost elementCost = median(element);
        const Cost more = difference(libraryCost, elementCost, 1);
        std::printf("library       %8.1f us, %6.2f page faults for each frame\n"
                    "pipeline      %8.1f us, %6.2f page faults for each frame\n"
                    "more          %8.1f us, %6.2f page faults\n",
                    libraryCost.microseconds, libraryCost.faults, elementCost.microseconds,
                    elementCost.faults, more.microseconds, more.faults);
        return more.microseconds <= allowedMicroseconds && more.faults < allowedFaults
                   ? EXIT_SUCCESS
                   : EXIT_FAILURE;
    } catch (const zrn::Error& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
