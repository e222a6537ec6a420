#include "sent_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <gst/video/video.h>

bool isSentImage(VirtualCamera& camera, std::uint64_t number, char letter, GstSample* sample)
{
    const auto request = camera.sentFrame(static_cast<std::uint32_t>(number), 8);
    if (!request) {
        ADD_FAILURE() << "the camera sent no frame " << number;
        return false;
    }
    const zrnsim::SentImages sent = zrnsim::expectedImages(*request);
    const std::vector<std::uint8_t>& expected = letter == 'A' ? sent.a : sent.b;

    // Bayer caps have no video format of their own: their rows are those of a grey image.
    GstStructure* structure =
        gst_structure_copy(gst_caps_get_structure(gst_sample_get_caps(sample), 0));
    gst_structure_set_name(structure, "video/x-raw");
    gst_structure_set(structure, "format", G_TYPE_STRING, "GRAY8", nullptr);
    GstCaps* const caps = gst_caps_new_full(structure, nullptr);
    GstVideoInfo info;
    gst_video_info_from_caps(&info, caps);
    gst_caps_unref(caps);

    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
        ADD_FAILURE() << "frame " << number << " cannot be mapped";
        return false;
    }
    const auto width = static_cast<std::size_t>(info.width);
    const auto height = static_cast<std::size_t>(info.height);
    const auto stride = static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0));
    const auto* const rows =
        static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    bool isSame = expected.size() == width * height;
    for (std::size_t row = 0; isSame && row < height; ++row) {
        isSame = std::memcmp(rows + row * stride, expected.data() + row * width, width) == 0;
    }
    gst_video_frame_unmap(&frame);
    EXPECT_TRUE(isSame) << "image " << letter << " of frame " << number << " differs";
    return isSame;
}
