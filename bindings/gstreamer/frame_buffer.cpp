#include "frame_buffer.h"

#include "client/wall_clock.h"

#include <algorithm>
#include <array>
#include <gst/video/video.h>
#include <memory>

namespace zrngst
{
namespace
{

constexpr std::uint32_t rowAlignment = 4;

std::uint32_t paddedWidth(std::uint32_t width)
{
    return (width + rowAlignment - 1) / rowAlignment * rowAlignment;
}

GstMemory* wrap(const zrn::Frame& frame, const zrn::Image& image)
{
    using Owner = std::shared_ptr<const void>;
    const auto pixels = image.pixels();
    return gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY,
                                  const_cast<std::uint8_t*>(pixels.data()), pixels.size(), 0,
                                  pixels.size(), new Owner(frame.memory),
                                  [](gpointer owner) { delete static_cast<Owner*>(owner); });
}

/// The wall clock's time of a moment.
std::chrono::nanoseconds sinceEpoch(std::chrono::steady_clock::time_point moment)
{
    return moment.time_since_epoch() +
           zrn::WallClock::read(zrn::WallClock::Kind::Realtime).distance();
}

} // namespace

GstCaps* capsOf(const std::string& bayer, std::uint32_t width, std::uint32_t height,
                std::chrono::nanoseconds period)
{
    int numerator = 0;
    int denominator = 1;
    if (period.count() > 0) {
        gst_video_guess_framerate(static_cast<GstClockTime>(period.count()), &numerator,
                                  &denominator);
    }
    const bool isGrey = bayer.empty();
    return gst_caps_new_simple(isGrey ? "video/x-raw" : "video/x-bayer", "format", G_TYPE_STRING,
                               isGrey ? "GRAY8" : bayer.c_str(), "width", G_TYPE_INT,
                               static_cast<int>(width), "height", G_TYPE_INT,
                               static_cast<int>(height), "framerate", GST_TYPE_FRACTION, numerator,
                               denominator, nullptr);
}

std::chrono::steady_clock::time_point captureTime(const zrn::Frame& frame)
{
    return frame.times.firstPayload;
}

bool hasUnusualRows(std::uint32_t width)
{
    return width != paddedWidth(width);
}

GstBuffer* wrapImage(const zrn::Frame& frame, const zrn::Image& image)
{
    GstBuffer* buffer = gst_buffer_new();
    gst_buffer_append_memory(buffer, wrap(frame, image));
    if (hasUnusualRows(frame.width)) {
        std::array<gsize, GST_VIDEO_MAX_PLANES> offsets{};
        std::array<gint, GST_VIDEO_MAX_PLANES> strides{static_cast<gint>(frame.width)};
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_GRAY8,
                                       frame.width, frame.height, 1, offsets.data(),
                                       strides.data());
    }
    return buffer;
}

GstBuffer* copyImage(const zrn::Frame& frame, const zrn::Image& image)
{
    const std::size_t stride = paddedWidth(frame.width);
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, stride * frame.height, nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    for (std::size_t row = 0; row < frame.height; ++row) {
        std::uint8_t* const begin = map.data + row * stride;
        std::uint8_t* const end =
            std::ranges::copy(image.pixels().subspan(row * frame.width, frame.width), begin).out;
        std::fill(end, begin + stride, std::uint8_t{0});
    }
    gst_buffer_unmap(buffer, &map);
    return buffer;
}

void stamp(GstBuffer* buffer, const zrn::Frame& frame, GstClockTime pts, GstClockTime duration)
{
    static GstStaticCaps unixTime = GST_STATIC_CAPS("timestamp/x-unix");
    static GstStaticCaps frameNumber = GST_STATIC_CAPS("timestamp/x-zrn-frame");
    const auto addReference = [buffer](GstStaticCaps& kind, GstClockTime value) {
        GstCaps* caps = gst_static_caps_get(&kind);
        gst_buffer_add_reference_timestamp_meta(buffer, caps, value, GST_CLOCK_TIME_NONE);
        gst_caps_unref(caps);
    };
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) = duration;
    GST_BUFFER_OFFSET(buffer) = frame.step.number;
    GST_BUFFER_OFFSET_END(buffer) = std::uint64_t{frame.step.number} + 1;
    addReference(unixTime, static_cast<GstClockTime>(sinceEpoch(captureTime(frame)).count()));
    addReference(frameNumber, frame.step.number);
}

} // namespace zrngst
