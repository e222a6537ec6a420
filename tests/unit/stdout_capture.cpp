#include "stdout_capture.h"

#include <array>
#include <cstdio>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

StdoutCapture::StdoutCapture()
    : m_savedDescriptor(dup(STDOUT_FILENO))
    , m_fileDescriptor(memfd_create("stdout", 0))
{
    std::fflush(stdout);
    if (m_savedDescriptor < 0 || m_fileDescriptor < 0 ||
        dup2(m_fileDescriptor, STDOUT_FILENO) < 0) {
        throw std::runtime_error("standard output cannot be redirected");
    }
}

StdoutCapture::~StdoutCapture()
{
    std::fflush(stdout);
    dup2(m_savedDescriptor, STDOUT_FILENO);
    close(m_savedDescriptor);
    close(m_fileDescriptor);
}

std::string StdoutCapture::text() const
{
    std::fflush(stdout);
    std::string captured;
    std::array<char, 4096> chunk{};
    ssize_t length = 0;
    while ((length = pread(m_fileDescriptor, chunk.data(), chunk.size(),
                           static_cast<off_t>(captured.size()))) > 0) {
        captured.append(chunk.data(), static_cast<std::size_t>(length));
    }
    return captured;
}
