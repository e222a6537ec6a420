#include "sent_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <gst/video/video.h>
#include <vector>

namespace
{

/// The pixels without the padding of rows; empty when they cannot be had.
std::vector<std::uint8_t> pixelsOf(GstSample* sample)
{
    // Bayer caps have no video format of their own: their rows are those of a grey image.
    GstStructure* structure =
        gst_structure_copy(gst_caps_get_structure(gst_sample_get_caps(sample), 0));
    gst_structure_set_name(structure, "video/x-raw");
    gst_structure_set(structure, "format", G_TYPE_STRING, "GRAY8", nullptr);
    GstCaps* const caps = gst_caps_new_full(structure, nullptr);
    GstVideoInfo info;
    gst_video_info_from_caps(&info, caps);
    gst_caps_unref(caps);

    std::vector<std::uint8_t> pixels;
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
        return pixels;
    }
    const auto* row = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    for (int i = 0; i < info.height; ++i) {
        pixels.insert(pixels.end(), row, row + info.width);
        row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    }
    gst_video_frame_unmap(&frame);
    return pixels;
}

} // namespace

bool isSentImage(VirtualCamera& camera, std::uint64_t number, char letter, GstSample* sample)
{
    // Of a number the low byte is sure, until a trailer shows more of it.
    constexpr std::uint64_t sureBits = 0xff;
    constexpr std::uint64_t recent = 2000;
    const std::uint64_t sent = camera.counter("framesStarted");
    const std::vector<SentFrame> frames = camera.sentFrames(sent - std::min(sent, recent));
    const std::vector<std::uint8_t> pixels = pixelsOf(sample);
    const bool isSent =
        !pixels.empty() && std::any_of(frames.rbegin(), frames.rend(), [&](const SentFrame& frame) {
            if (((frame.request.frameNumber ^ number) & sureBits) != 0) {
                return false;
            }
            const zrnsim::SentImages images = zrnsim::expectedImages(frame.request);
            return (letter == 'A' ? images.a : images.b) == pixels;
        });
    EXPECT_TRUE(isSent) << "image " << letter << " of frame " << number << " was never sent";
    return isSent;
}
