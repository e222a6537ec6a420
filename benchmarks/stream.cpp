#include "stream.h"

#include "frame_trailer.h"

namespace
{

constexpr int sensorType = 2;
constexpr std::size_t numberBase = 128; // a byte from 128 on spreads into the bytes above it

} // namespace

Bus::Bus(int cameras, Geometry geometry)
{
    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    bus.reset();
    for (int i = 0; i < cameras; ++i) {
        bus.addCamera(4711U + static_cast<unsigned>(i), sensorType, geometry.width,
                      geometry.height);
    }
    CZRNCamera::enumZRNCameraDevices();
}

Bus::~Bus()
{
    CZRNCamera::releaseZRNCameraLibrary();
}

Stream::Stream(int index, Geometry geometry)
    : m_bytes(geometry.frameSize(), 1)
{
    m_frame.data = m_bytes.data();
    m_frame.data_bytes = m_bytes.size();
    m_frame.width = static_cast<std::uint32_t>(geometry.width);
    m_frame.height = static_cast<std::uint32_t>(geometry.height);
    m_started = m_camera.connectDeviceByIndex(index) == ErrorCode::Success &&
                m_camera.startStream(0) == ErrorCode::Success;
}

Stream::~Stream()
{
    m_camera.stopStream(0);
    m_camera.disconnectDevice();
}

void Stream::arrive(std::uint32_t frames) const
{
    PayloadTimes times;
    times.bytes = m_frame.data_bytes;
    for (std::uint32_t i = 1; i <= frames; ++i) {
        fakeuvc::Bus::instance().watch()->note(m_frame.sequence + i, times);
    }
}

void Stream::deliver(std::size_t number)
{
    ++m_frame.sequence;
    m_bytes[2] = static_cast<unsigned char>(number % numberBase);
    m_bytes[3] = static_cast<unsigned char>(number / numberBase);
    CZRNCamera::frameTriggered(&m_frame, &m_camera);
}

std::size_t Stream::numberOf(const CameraSpace::ImageBlock& image)
{
    const char* trailer = image.data.constData() + image.data.size() - frameTrailerSize;
    return static_cast<std::size_t>(trailer[0]) + numberBase * static_cast<std::size_t>(trailer[1]);
}
