#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace zrnrec
{

/// What went wrong with a file that is written. @throws zrn::Error
[[noreturn]] void failToWrite(const std::string& path, const std::string& why);

/// A file that is written under another name, and has its own only once it is complete: until then
/// what stood there before stays.
///
/// Thread safety: thread-bound.
class TargetFile
{
public:
    enum class Kind {
        File,
        FileOrPipe, ///< what is no file is written to as it is
    };

    /// Creates the file. @throws zrn::Error
    explicit TargetFile(const std::string& path, Kind kind = Kind::File);
    /// Removes what was not committed.
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }
    /// Where it lies until it is committed, for those who write it by name.
    [[nodiscard]] const std::string& temporaryPath() const { return m_temporaryPath; }
    [[nodiscard]] int descriptor() const { return m_descriptor; }

    /// Puts bytes behind those before. @throws zrn::Error
    void write(std::span<const std::uint8_t> bytes);
    void write(const std::string& text);

    /// Tells that somebody has written so much of it: the disk begins with that, instead of when
    /// commit() waits for it.
    void noteWritten(std::size_t bytes);

    /// Gives the file its name, once it is on the disk. @throws zrn::Error
    void commit() { commit({this}); }
    /// The same for files that belong together, once all of them are on the disk. @throws
    /// zrn::Error
    static void commit(std::initializer_list<TargetFile*> files);

private:
    std::string m_path;
    std::string m_temporaryPath; ///< empty for what is no file
    int m_descriptor = -1;
    std::size_t m_notBegun = 0; ///< bytes that the disk may not have begun with
};

} // namespace zrnrec
