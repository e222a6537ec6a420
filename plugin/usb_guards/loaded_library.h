#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace usbguards
{

/// The program or one of the libraries that the process has loaded: where it lies, and the linkage
/// table through which it calls functions of others.
///
/// Valid as long as the library stays loaded. Thread-safe.
class LoadedLibrary
{
public:
    /// An entry of the linkage table.
    struct Link {
        const char* function; ///< name of the function that the entry is for
        void** slot;          ///< where the entry stands
    };
    /// What shall become of an entry.
    struct Change {
        void** slot;
        void* expected; ///< the entry is left alone if it holds anything else
        void* value;
    };

    /// The library whose code or data @p address points into; an empty one if there is none.
    static LoadedLibrary around(const void* address);

    [[nodiscard]] bool isEmpty() const { return m_extents.empty(); }
    [[nodiscard]] bool contains(const void* address) const;

    /// The entries for functions whose name begins with @p prefix. One function may have several.
    [[nodiscard]] std::vector<Link> links(const std::string& prefix) const;

    /// Changes entries, each in one store. Where the dynamic linker has write-protected the table,
    /// it is writable for the length of the call.
    /// @return 0, or the error number for which the table cannot be made writable.
    [[nodiscard]] int change(std::span<const Change> changes) const;

    /// What an entry holds now.
    static void* read(void** slot);

private:
    struct Extent {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
    };

    std::uintptr_t m_base = 0;      ///< added to the addresses that stand in the file
    std::uintptr_t m_dynamic = 0;   ///< where the dynamic section lies
    std::vector<Extent> m_extents;  ///< what is mapped
    std::vector<Extent> m_writable; ///< what of it the program may write
    Extent m_protectedAfterLinking; ///< the pages that the dynamic linker write-protects at the end
};

} // namespace usbguards
