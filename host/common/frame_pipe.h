#pragma once

#include "client/frame.h"

#include <QString>

#include <cstdio>
#include <functional>

namespace zrnhost
{

/// Writes frames to a pipe, the images of each one below the other: their pixels alone, a byte
/// each, or as a YUV4MPEG2 stream, which video players read.
///
/// A reader that goes away is no error. From the first of these on, SIGPIPE is ignored.
/// Thread safety: thread-bound.
class FramePipe
{
public:
    enum class Format { Pixels, Y4m };

    /// Frames per second that the camera is set to; 0: nobody knows.
    using Rate = std::function<double()>;

    /// @param stream stays the caller's. @param rate asked once, when the first frame is here
    FramePipe(std::FILE* stream, Format format, Rate rate);

    /// @return whether it is written, and another one makes sense
    bool write(const zrn::Frame& frame);

    /// Empty, or why a frame could not be written.
    [[nodiscard]] const QString& failure() const { return m_failure; }

private:
    void writeHeader(const zrn::Frame& frame);
    void writeImages(const zrn::Frame& frame);
    void put(const void* bytes, std::size_t size);

    std::FILE* const m_stream;
    const Format m_format;
    const Rate m_rate;
    bool m_hasBegun = false;
    bool m_isOver = false;
    QString m_failure;
};

} // namespace zrnhost
