// Streams from the first camera with plain libuvc and says what arrived: uvc_stream [WxH [SECONDS]]
#include "camera_ids.h"

#include <libuvc/libuvc.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace
{

struct Tally {
    std::atomic<unsigned> frames{0};
    std::atomic<unsigned> wrongSize{0};
    std::atomic<std::size_t> bytes{0};
    std::size_t expected = 0;
};

void count(uvc_frame* frame, void* user)
{
    auto& tally = *static_cast<Tally*>(user);
    ++tally.frames;
    tally.bytes += frame->data_bytes;
    tally.wrongSize += frame->data_bytes != tally.expected ? 1U : 0U;
}

bool failed(uvc_error_t error, const char* what)
{
    if (error != UVC_SUCCESS) {
        std::fprintf(stderr, "%s: %s\n", what, uvc_strerror(error));
    }
    return error != UVC_SUCCESS;
}

int stream(uvc_device_handle_t* handle, int width, int height, double seconds)
{
    uvc_stream_ctrl_t control{};
    if (failed(uvc_get_stream_ctrl_format_size(handle, &control, UVC_FRAME_FORMAT_UNCOMPRESSED,
                                               width, height, 0),
               "negotiation")) {
        return EXIT_FAILURE;
    }
    Tally tally;
    tally.expected = control.dwMaxVideoFrameSize;
    if (failed(uvc_start_streaming(handle, &control, count, &tally, 0), "start")) {
        return EXIT_FAILURE;
    }
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const unsigned frames = tally.frames;
    const double megabytes = static_cast<double>(tally.bytes) / 1e6;
    uvc_stop_streaming(handle);
    std::printf("%u frames in %.2f s: %.1f frames/s, %.1f MB/s, %u of a wrong size\n", frames,
                elapsed.count(), frames / elapsed.count(), megabytes / elapsed.count(),
                tally.wrongSize.load());
    return frames > 0 && tally.wrongSize == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    int width = 1280;
    int height = 1024;
    if (argc > 1 && std::sscanf(argv[1], "%dx%d", &width, &height) != 2) {
        std::fprintf(stderr, "usage: uvc_stream [WxH [SECONDS]]\n");
        return EXIT_FAILURE;
    }
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2.0;
    uvc_context_t* context = nullptr;
    uvc_device_t* device = nullptr;
    uvc_device_handle_t* handle = nullptr;
    if (failed(uvc_init(&context, nullptr), "uvc_init") ||
        failed(
            uvc_find_device(context, &device, zrn::cameraVendorId, zrn::cameraProductId, nullptr),
            "find") ||
        failed(uvc_open(device, &handle), "open")) {
        return EXIT_FAILURE;
    }
    const int result = stream(handle, width, height, seconds);
    uvc_close(handle);
    uvc_unref_device(device);
    uvc_exit(context);
    return result;
}
