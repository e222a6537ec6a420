#include "recording/target_file.h"

#include "client/error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrnrec
{
namespace
{

namespace fs = std::filesystem;

[[noreturn]] void failWithErrno(const std::string& path)
{
    failToWrite(path, std::strerror(errno));
}

/// The file that a link leads to, so that the link stays.
std::string resolved(const std::string& path)
{
    std::error_code error;
    const fs::path end = fs::canonical(path, error);
    return error ? path : end.string();
}

} // namespace

void failToWrite(const std::string& path, const std::string& why)
{
    throw zrn::Error(zrn::Error::Kind::Recording, "NotWritable", path + ": " + why);
}

TargetFile::TargetFile(const std::string& path, Kind kind)
    : m_path(resolved(path))
{
    std::error_code error;
    const fs::file_status status = fs::status(m_path, error);
    if (fs::is_directory(status)) {
        failToWrite(path, "is a folder");
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        if (kind == Kind::File) {
            failToWrite(path, "is no file");
        }
        m_descriptor = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        // Another program's is another one, and its end shows that it is not whole.
        m_temporaryPath = m_path + '.' + std::to_string(::getpid()) + ".part";
        constexpr mode_t everybody = 0666;
        m_descriptor =
            ::open(m_temporaryPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, everybody);
    }
    if (m_descriptor < 0) {
        failWithErrno(path);
    }
}

TargetFile::~TargetFile()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
        if (!m_temporaryPath.empty()) {
            ::unlink(m_temporaryPath.c_str());
        }
    }
}

void TargetFile::write(std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            failWithErrno(m_path);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        noteWritten(static_cast<std::size_t>(written));
    }
}

void TargetFile::write(const std::string& text)
{
    write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

void TargetFile::noteWritten(std::size_t bytes)
{
    constexpr std::size_t worthIt = std::size_t{16} << 20;
    m_notBegun += bytes;
    if (m_notBegun >= worthIt && !m_temporaryPath.empty()) {
        m_notBegun = 0;
        ::sync_file_range(m_descriptor, 0, 0, SYNC_FILE_RANGE_WRITE); // a hint, no more
    }
}

void TargetFile::commit(std::initializer_list<TargetFile*> files)
{
    for (const TargetFile* file : files) {
        if (!file->m_temporaryPath.empty() && ::fsync(file->m_descriptor) != 0) {
            failWithErrno(file->m_path);
        }
    }
    for (TargetFile* file : files) {
        if (file->m_temporaryPath.empty()) {
            continue;
        }
        if (std::rename(file->m_temporaryPath.c_str(), file->m_path.c_str()) != 0) {
            failWithErrno(file->m_path);
        }
        ::close(std::exchange(file->m_descriptor, -1));
    }
}

} // namespace zrnrec
