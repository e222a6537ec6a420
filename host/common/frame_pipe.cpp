#include "common/frame_pipe.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <utility>

namespace zrnhost
{
namespace
{

std::size_t pixelsOf(const zrn::Frame& frame)
{
    return std::size_t{frame.width} * frame.height;
}

} // namespace

FramePipe::FramePipe(std::FILE* stream, Format format)
    : m_stream(stream)
    , m_format(format)
{
    ::signal(SIGPIPE, SIG_IGN);
}

bool FramePipe::write(const zrn::Frame& frame)
{
    if (m_format == Format::Pixels || m_hasBegun) {
        writeImages(frame);
    } else if (!m_first) {
        m_first = frame;
    } else {
        const zrn::Frame first = *std::exchange(m_first, std::nullopt);
        const double seconds = std::chrono::duration<double>(frame.arrival - first.arrival).count();
        writeHeader(first, seconds > 0 ? (1 + frame.step.missing) / seconds : 0);
        writeImages(first);
        writeImages(frame);
    }
    return !m_isOver;
}

void FramePipe::finish()
{
    if (const std::optional<zrn::Frame> first = std::exchange(m_first, std::nullopt)) {
        writeHeader(*first, 0);
        writeImages(*first);
    }
}

void FramePipe::writeHeader(const zrn::Frame& frame, double rate)
{
    m_hasBegun = true;
    const QByteArray header =
        "YUV4MPEG2 W" + QByteArray::number(frame.width) + " H" +
        QByteArray::number(qint64{frame.height} * static_cast<qint64>(frame.imageCount)) + " F" +
        QByteArray::number(std::max(1.0, std::round(rate)), 'f', 0) + ":1 Ip A1:1 Cmono\n";
    put(header.constData(), static_cast<std::size_t>(header.size()));
}

void FramePipe::writeImages(const zrn::Frame& frame)
{
    constexpr std::string_view frameMark = "FRAME\n";
    if (m_format == Format::Y4m) {
        put(frameMark.data(), frameMark.size());
    }
    for (const zrn::Image& image : frame.images()) {
        put(image.bytes.data(), pixelsOf(frame));
    }
    put(nullptr, 0);
}

/// @param size 0: nothing is to stay in a buffer
void FramePipe::put(const void* bytes, std::size_t size)
{
    if (m_isOver) {
        return;
    }
    const bool isWritten =
        size == 0 ? std::fflush(m_stream) == 0 : std::fwrite(bytes, 1, size, m_stream) == size;
    if (!isWritten) {
        m_isOver = true;
        m_failure = errno == EPIPE ? QString() : QString::fromLocal8Bit(std::strerror(errno));
    }
}

} // namespace zrnhost
