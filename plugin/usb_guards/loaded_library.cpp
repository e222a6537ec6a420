#include "loaded_library.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace usbguards
{
namespace
{

using Relocation = ElfW(Rela);

/// Whether an entry of this kind holds the address of a function, and nothing else.
bool isLink(const Relocation& relocation)
{
#if defined(__x86_64__)
    const auto type = ELF64_R_TYPE(relocation.r_info);
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT ||
           (type == R_X86_64_64 && relocation.r_addend == 0);
#elif defined(__aarch64__)
    const auto type = ELF64_R_TYPE(relocation.r_info);
    return type == R_AARCH64_JUMP_SLOT || type == R_AARCH64_GLOB_DAT ||
           (type == R_AARCH64_ABS64 && relocation.r_addend == 0);
#else
    static_cast<void>(relocation);
    return false;
#endif
}

/// The dynamic section's tables that links are found by.
struct LinkTables {
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    std::span<const Relocation> calls;
    std::span<const Relocation> others;
};

LinkTables readTables(std::uintptr_t dynamic, std::uintptr_t base)
{
    // Most dynamic linkers put the address into the section where the file has an offset.
    const auto table = [base](const auto* entry, auto type) {
        const std::uintptr_t address = entry->d_un.d_ptr;
        return reinterpret_cast<decltype(type)>(address < base ? base + address : address);
    };
    constexpr const Relocation* relocations = nullptr;
    LinkTables tables;
    const Relocation* calls = nullptr;
    const Relocation* others = nullptr;
    std::size_t callBytes = 0;
    std::size_t otherBytes = 0;
    bool hasAddends = true;
    for (const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(dynamic); entry->d_tag != DT_NULL;
         ++entry) {
        switch (entry->d_tag) {
        case DT_SYMTAB:
            tables.symbols = table(entry, tables.symbols);
            break;
        case DT_STRTAB:
            tables.names = table(entry, tables.names);
            break;
        case DT_JMPREL:
            calls = table(entry, relocations);
            break;
        case DT_PLTRELSZ:
            callBytes = entry->d_un.d_val;
            break;
        case DT_PLTREL:
            hasAddends = entry->d_un.d_val == DT_RELA;
            break;
        case DT_RELA:
            others = table(entry, relocations);
            break;
        case DT_RELASZ:
            otherBytes = entry->d_un.d_val;
            break;
        default:
            break;
        }
    }
    if (calls && hasAddends) {
        tables.calls = {calls, callBytes / sizeof(Relocation)};
    }
    if (others) {
        tables.others = {others, otherBytes / sizeof(Relocation)};
    }
    return tables;
}

/// Visits the libraries of the process until one is the right one. The dynamic linker lets one
/// thread of the process at a time do this, which keeps two copies of this code from protecting
/// a page again that the other is about to write.
bool visitLibraries(const std::function<bool(const dl_phdr_info&)>& visit)
{
    const auto forward = [](dl_phdr_info* info, std::size_t, void* visitor) {
        return (*static_cast<const std::function<bool(const dl_phdr_info&)>*>(visitor))(*info) ? 1
                                                                                               : 0;
    };
    return dl_iterate_phdr(forward,
                           const_cast<std::function<bool(const dl_phdr_info&)>*>(&visit)) != 0;
}

} // namespace

LoadedLibrary LoadedLibrary::around(const void* address)
{
    const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    LoadedLibrary result;
    const bool isFound = visitLibraries([&](const dl_phdr_info& info) {
        LoadedLibrary library;
        library.m_base = info.dlpi_addr;
        for (const auto& header : std::span(info.dlpi_phdr, info.dlpi_phnum)) {
            const Extent extent = {info.dlpi_addr + header.p_vaddr,
                                   info.dlpi_addr + header.p_vaddr + header.p_memsz};
            switch (header.p_type) {
            case PT_LOAD:
                library.m_extents.push_back(extent);
                if (header.p_flags & PF_W) {
                    library.m_writable.push_back(extent);
                }
                break;
            case PT_DYNAMIC:
                library.m_dynamic = extent.begin;
                break;
            case PT_GNU_RELRO:
                library.m_protectedAfterLinking = {extent.begin / pageSize * pageSize,
                                                   extent.end / pageSize * pageSize};
                break;
            default:
                break;
            }
        }
        if (!library.contains(address)) {
            return false;
        }
        result = std::move(library);
        return true;
    });
    return isFound ? result : LoadedLibrary();
}

bool LoadedLibrary::contains(const void* address) const
{
    const auto position = reinterpret_cast<std::uintptr_t>(address);
    return std::ranges::any_of(m_extents, [position](const Extent& extent) {
        return position >= extent.begin && position < extent.end;
    });
}

std::vector<LoadedLibrary::Link> LoadedLibrary::links(const std::string& prefix) const
{
    std::vector<Link> found;
    if (m_dynamic == 0) {
        return found;
    }
    const LinkTables tables = readTables(m_dynamic, m_base);
    if (!tables.symbols || !tables.names) {
        return found;
    }
    for (const std::span<const Relocation> relocations : {tables.calls, tables.others}) {
        for (const Relocation& relocation : relocations) {
            if (!isLink(relocation)) {
                continue;
            }
            const auto& symbol = tables.symbols[ELF64_R_SYM(relocation.r_info)];
            const char* const name = tables.names + symbol.st_name;
            if (std::strncmp(name, prefix.c_str(), prefix.size()) == 0) {
                found.push_back({name, reinterpret_cast<void**>(m_base + relocation.r_offset)});
            }
        }
    }
    return found;
}

int LoadedLibrary::change(std::span<const Change> changes) const
{
    const auto isWithin = [](const Extent& extent, void** slot) {
        const auto position = reinterpret_cast<std::uintptr_t>(slot);
        return position >= extent.begin && position < extent.end;
    };
    const Extent& guarded = m_protectedAfterLinking;
    const bool mustUnprotect = std::ranges::any_of(
        changes, [&](const Change& change) { return isWithin(guarded, change.slot); });
    const bool isReachable = std::ranges::all_of(changes, [&](const Change& change) {
        return std::ranges::any_of(
            m_writable, [&](const Extent& extent) { return isWithin(extent, change.slot); });
    });
    if (!isReachable) {
        return EACCES;
    }

    int error = 0;
    visitLibraries([&](const dl_phdr_info&) {
        void* const pages = reinterpret_cast<void*>(guarded.begin);
        const std::size_t size = guarded.end - guarded.begin;
        if (mustUnprotect && mprotect(pages, size, PROT_READ | PROT_WRITE) != 0) {
            error = errno;
            return true;
        }
        for (const Change& change : changes) {
            void* expected = change.expected;
            std::atomic_ref(*change.slot).compare_exchange_strong(expected, change.value);
        }
        if (mustUnprotect && mprotect(pages, size, PROT_READ) != 0) {
            error = errno;
        }
        return true;
    });
    return error;
}

void* LoadedLibrary::read(void** slot)
{
    return std::atomic_ref(*slot).load();
}

} // namespace usbguards
