#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace zrn
{

/// Remembers the serials of cameras for as long as these stay plugged in, so that a camera can be
/// named while somebody else has it open.
///
/// In memory, and in one small file for each port of the bus, which other processes of the same
/// user share. An entry that does not belong to the camera that is plugged in now is ignored; a
/// folder that cannot be read or written makes the memory end with the process.
///
/// Thread safety: thread-safe. Copies share their memory.
class SerialCache
{
public:
    /// @param folder made when it is missing; empty for no files
    explicit SerialCache(std::string folder);

    /// The folder for this user: `zrncamera` in $XDG_RUNTIME_DIR, or none.
    static std::string folder();

    /// The serial of what is plugged in at a port. @param stay differs for every plugging in
    [[nodiscard]] std::string find(const std::string& port, const std::string& stay) const;

    void store(const std::string& port, const std::string& stay, const std::string& serial);

private:
    struct Entry {
        std::string stay;
        std::string serial;
    };
    struct Memory {
        std::mutex mutex;
        std::map<std::string, Entry> entries; // by port
    };

    [[nodiscard]] std::string fileOf(const std::string& port) const;

    std::string m_folder;
    std::shared_ptr<Memory> m_memory = std::make_shared<Memory>();
};

} // namespace zrn
