#include "client/serial_cache.h"

#include "client/file_text.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace zrn
{
namespace
{

constexpr std::size_t longestSerial = 64;

bool isSerial(const std::string& text)
{
    return !text.empty() && text.size() <= longestSerial &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

/// A name that no other thread or process uses at the same time.
std::string temporaryName(const std::string& file)
{
    static std::atomic<unsigned> count = 0;
    return file + "." + std::to_string(::getpid()) + "." + std::to_string(++count);
}

} // namespace

SerialCache::SerialCache(std::string folder)
    : m_folder(std::move(folder))
{
}

std::string SerialCache::folder()
{
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && *runtime == '/' ? std::string(runtime) + "/zrncamera" : std::string();
}

std::string SerialCache::find(const std::string& port, const std::string& stay) const
{
    {
        const std::lock_guard lock(m_memory->mutex);
        const auto found = m_memory->entries.find(port);
        if (found != m_memory->entries.end() && found->second.stay == stay) {
            return found->second.serial;
        }
    }
    if (m_folder.empty()) {
        return {};
    }
    std::istringstream words(readText(fileOf(port)));
    Entry entry;
    words >> entry.stay >> entry.serial;
    return entry.stay == stay && isSerial(entry.serial) ? entry.serial : std::string();
}

void SerialCache::store(const std::string& port, const std::string& stay, const std::string& serial)
{
    if (!isSerial(serial) || stay.empty()) {
        return;
    }
    {
        const std::lock_guard lock(m_memory->mutex);
        m_memory->entries[port] = {stay, serial};
    }
    if (m_folder.empty()) {
        return;
    }
    // Whoever reads meanwhile gets the old entry or the new one, and never half of it.
    std::error_code ignored;
    if (std::filesystem::create_directory(m_folder, ignored)) {
        std::filesystem::permissions(m_folder, std::filesystem::perms::owner_all, ignored);
    }
    const std::string file = fileOf(port);
    const std::string temporary = temporaryName(file);
    const bool isWritten = (std::ofstream(temporary) << stay << ' ' << serial << '\n'
                                                     << std::flush)
                               .good();
    if (isWritten) {
        std::filesystem::rename(temporary, file, ignored);
    } else {
        std::filesystem::remove(temporary, ignored);
    }
}

std::string SerialCache::fileOf(const std::string& port) const
{
    return m_folder + "/serial-" + port;
}

} // namespace zrn
