#pragma once

#include "control/file_descriptor.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

/// A capture device of the kernel's Video4Linux interface, with memory-mapped buffers.
/// Failures are std::system_error.
class V4l2Device
{
public:
    struct Mode {
        std::uint32_t pixelFormat = 0; ///< four characters
        std::uint32_t width = 0;
        std::uint32_t height = 0;

        std::string description() const;
    };

    /// The first capture node of the uvcvideo driver. @throws std::runtime_error without one
    static V4l2Device firstCamera();

    /// Every size of every format, in the device's order.
    std::vector<Mode> modes() const;

    void start(const Mode& mode);
    void stop();

    /// The bytes of the next frame. @throws std::runtime_error when none comes within the limit or
    /// the driver marks it as damaged
    std::vector<std::uint8_t> nextFrame(std::chrono::milliseconds limit);

private:
    /// One buffer of the driver, mapped into this process.
    class Mapping
    {
    public:
        Mapping(int fd, std::size_t length, std::int64_t offset);
        Mapping(Mapping&& other) noexcept;
        Mapping& operator=(Mapping&&) = delete;
        ~Mapping();

        const std::uint8_t* data() const { return m_data; }

    private:
        std::uint8_t* m_data;
        std::size_t m_length;
    };

    explicit V4l2Device(const std::string& path);
    void call(unsigned long request, void* argument, const char* name) const;
    void requestBuffers(std::uint32_t count);
    void queue(std::uint32_t index);

    zrnsim::FileDescriptor m_fd;
    std::vector<Mapping> m_buffers;
};
