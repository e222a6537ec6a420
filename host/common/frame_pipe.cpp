#include "common/frame_pipe.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <numeric>
#include <utility>

namespace zrnhost
{
namespace
{

std::size_t pixelsOf(const zrn::Frame& frame)
{
    return std::size_t{frame.width} * frame.height;
}

/// To a thousandth, which takes away what an interval in 100 ns is beside its rate. 0:0 is the
/// format's way to say that the rate is unknown.
QByteArray ratio(double rate)
{
    constexpr qint64 parts = 1000;
    const qint64 number = std::isfinite(rate) ? std::llround(rate * parts) : 0;
    if (number <= 0) {
        return "0:0";
    }
    const qint64 divisor = std::gcd(number, parts);
    return QByteArray::number(number / divisor) + ':' + QByteArray::number(parts / divisor);
}

} // namespace

FramePipe::FramePipe(std::FILE* stream, Format format, Rate rate)
    : m_stream(stream)
    , m_format(format)
    , m_rate(std::move(rate))
{
    ::signal(SIGPIPE, SIG_IGN);
}

bool FramePipe::write(const zrn::Frame& frame)
{
    if (m_format == Format::Y4m && !m_hasBegun) {
        writeHeader(frame);
    }
    writeImages(frame);
    return !m_isOver;
}

void FramePipe::writeHeader(const zrn::Frame& frame)
{
    m_hasBegun = true;
    const QByteArray header =
        "YUV4MPEG2 W" + QByteArray::number(frame.width) + " H" +
        QByteArray::number(qint64{frame.height} * static_cast<qint64>(frame.imageCount)) + " F" +
        ratio(m_rate()) + " Ip A1:1 Cmono\n";
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
