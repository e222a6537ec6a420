#pragma once

#include "client/frame.h"

#include <QString>

#include <cstdio>
#include <optional>

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

    /// @param stream stays the caller's
    FramePipe(std::FILE* stream, Format format);

    /// @return whether another frame makes sense
    bool write(const zrn::Frame& frame);
    /// Writes what is still kept back.
    void finish();

    /// Empty, or why a frame could not be written.
    [[nodiscard]] const QString& failure() const { return m_failure; }

private:
    void writeHeader(const zrn::Frame& frame, double rate);
    void writeImages(const zrn::Frame& frame);
    void put(const void* bytes, std::size_t size);

    std::FILE* const m_stream;
    const Format m_format;
    std::optional<zrn::Frame> m_first; ///< kept until the second one tells the rate
    bool m_hasBegun = false;
    bool m_isOver = false;
    QString m_failure;
};

} // namespace zrnhost
