#pragma once

#include "client/frame.h"

#include <chrono>
#include <gst/gst.h>
#include <string>

namespace zrngst
{

/// Caps of the images. @param bayer order of the mosaic's cells; empty: grey
GstCaps* capsOf(const std::string& bayer, std::uint32_t width, std::uint32_t height,
                std::chrono::nanoseconds period);

/// When the first of a frame was here, on CLOCK_MONOTONIC.
std::chrono::steady_clock::time_point captureTime(const zrn::Frame& frame);

/// GStreamer takes rows for padded to a multiple of four bytes, unless a buffer says otherwise.
bool hasUnusualRows(std::uint32_t width);

/// A buffer over an image: the driver's own memory, which lives as long as the buffer's does.
/// Rows that are not padded as GStreamer expects are described by a GstVideoMeta.
GstBuffer* wrapImage(const zrn::Frame& frame, const zrn::Image& image);

/// A buffer with a copy whose rows are padded as GStreamer expects.
GstBuffer* copyImage(const zrn::Frame& frame, const zrn::Image& image);

/// Notes frame number and times. @param pts may be GST_CLOCK_TIME_NONE
void stamp(GstBuffer* buffer, const zrn::Frame& frame, GstClockTime pts, GstClockTime duration);

} // namespace zrngst
