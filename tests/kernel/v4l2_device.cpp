#include "v4l2_device.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <system_error>
#include <utility>

namespace
{

constexpr std::uint32_t bufferCount = 4;
constexpr int highestNode = 63;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

v4l2_buffer captureBuffer(std::uint32_t index)
{
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
}

} // namespace

std::string V4l2Device::Mode::description() const
{
    std::string text(sizeof pixelFormat, ' ');
    std::memcpy(text.data(), &pixelFormat, sizeof pixelFormat);
    return text + " " + std::to_string(width) + "x" + std::to_string(height);
}

V4l2Device::Mapping::Mapping(int fd, std::size_t length, std::int64_t offset)
    : m_data(static_cast<std::uint8_t*>(mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, offset)))
    , m_length(length)
{
    if (m_data == MAP_FAILED) {
        fail("mmap");
    }
}

V4l2Device::Mapping::Mapping(Mapping&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr))
    , m_length(other.m_length)
{
}

V4l2Device::Mapping::~Mapping()
{
    if (m_data != nullptr) {
        munmap(m_data, m_length);
    }
}

V4l2Device::V4l2Device(const std::string& path)
    : m_fd(open(path.c_str(), O_RDWR | O_CLOEXEC))
{
    if (!m_fd.isOpen()) {
        fail(path);
    }
}

V4l2Device V4l2Device::firstCamera()
{
    for (int node = 0; node <= highestNode; ++node) {
        const std::string path = "/dev/video" + std::to_string(node);
        if (access(path.c_str(), F_OK) != 0) {
            continue;
        }
        V4l2Device device(path);
        v4l2_capability capability{};
        device.call(VIDIOC_QUERYCAP, &capability, "VIDIOC_QUERYCAP");
        const std::string driver = reinterpret_cast<const char*>(capability.driver);
        // The driver's second node carries metadata.
        if (driver == "uvcvideo" && (capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0) {
            return device;
        }
    }
    throw std::runtime_error("no capture node of uvcvideo");
}

void V4l2Device::call(unsigned long request, void* argument, const char* name) const
{
    if (ioctl(m_fd.get(), request, argument) != 0) {
        fail(name);
    }
}

std::vector<V4l2Device::Mode> V4l2Device::modes() const
{
    std::vector<Mode> modes;
    v4l2_fmtdesc format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (; ioctl(m_fd.get(), VIDIOC_ENUM_FMT, &format) == 0; ++format.index) {
        v4l2_frmsizeenum size{};
        size.pixel_format = format.pixelformat;
        for (; ioctl(m_fd.get(), VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
            modes.push_back({format.pixelformat, size.discrete.width, size.discrete.height});
        }
    }
    return modes;
}

void V4l2Device::requestBuffers(std::uint32_t count)
{
    v4l2_requestbuffers request{};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    call(VIDIOC_REQBUFS, &request, "VIDIOC_REQBUFS");
}

void V4l2Device::queue(std::uint32_t index)
{
    v4l2_buffer buffer = captureBuffer(index);
    call(VIDIOC_QBUF, &buffer, "VIDIOC_QBUF");
}

void V4l2Device::start(const Mode& mode)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = mode.width;
    format.fmt.pix.height = mode.height;
    format.fmt.pix.pixelformat = mode.pixelFormat;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    call(VIDIOC_S_FMT, &format, "VIDIOC_S_FMT");
    requestBuffers(bufferCount);
    for (std::uint32_t index = 0; index < bufferCount; ++index) {
        v4l2_buffer buffer = captureBuffer(index);
        call(VIDIOC_QUERYBUF, &buffer, "VIDIOC_QUERYBUF");
        m_buffers.emplace_back(m_fd.get(), buffer.length, buffer.m.offset);
        queue(index);
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    call(VIDIOC_STREAMON, &type, "VIDIOC_STREAMON");
}

void V4l2Device::stop()
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    call(VIDIOC_STREAMOFF, &type, "VIDIOC_STREAMOFF");
    m_buffers.clear();
    requestBuffers(0);
}

std::vector<std::uint8_t> V4l2Device::nextFrame(std::chrono::milliseconds limit)
{
    pollfd event{m_fd.get(), POLLIN, 0};
    if (poll(&event, 1, static_cast<int>(limit.count())) != 1) {
        throw std::runtime_error("no frame came");
    }
    v4l2_buffer buffer = captureBuffer(0);
    call(VIDIOC_DQBUF, &buffer, "VIDIOC_DQBUF");
    if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
        throw std::runtime_error("the driver marks the frame as damaged");
    }
    const std::uint8_t* const data = m_buffers.at(buffer.index).data();
    std::vector<std::uint8_t> frame(data, data + buffer.bytesused);
    queue(buffer.index);
    return frame;
}
