#include "linkage_table.h"

#include <elf.h>
#include <fstream>
#include <link.h>
#include <sstream>
#include <utility>

namespace company
{
namespace
{

#if defined(__x86_64__)
constexpr unsigned jumpSlot = R_X86_64_JUMP_SLOT;
constexpr unsigned globalData = R_X86_64_GLOB_DAT;
#elif defined(__aarch64__)
constexpr unsigned jumpSlot = R_AARCH64_JUMP_SLOT;
constexpr unsigned globalData = R_AARCH64_GLOB_DAT;
#endif

std::string permissionsAt(std::uintptr_t address)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream words(line);
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        std::string permissions;
        words >> std::hex >> begin >> dash >> end >> permissions;
        if (address >= begin && address < end) {
            return permissions;
        }
    }
    return "none";
}

void readTable(const dl_phdr_info& object, const ElfW(Dyn) * dynamic, LinkageTable& table)
{
    std::uintptr_t lists[2]{};
    std::size_t sizes[2]{};
    for (; dynamic->d_tag != DT_NULL; ++dynamic) {
        switch (dynamic->d_tag) {
        case DT_RELA:
            lists[0] = dynamic->d_un.d_ptr;
            break;
        case DT_RELASZ:
            sizes[0] = dynamic->d_un.d_val;
            break;
        case DT_JMPREL:
            lists[1] = dynamic->d_un.d_ptr;
            break;
        case DT_PLTRELSZ:
            sizes[1] = dynamic->d_un.d_val;
            break;
        default:
            break;
        }
    }
    for (int i = 0; i < 2; ++i) {
        const auto* const entries = reinterpret_cast<const ElfW(Rela)*>(lists[i]);
        for (std::size_t j = 0; j < sizes[i] / sizeof *entries; ++j) {
            const auto type = ELF64_R_TYPE(entries[j].r_info);
            if (type != jumpSlot && type != globalData) {
                continue;
            }
            const std::uintptr_t place = object.dlpi_addr + entries[j].r_offset;
            if (table.targets.empty()) {
                table.permissions = permissionsAt(place);
            }
            table.targets.push_back(*reinterpret_cast<const std::uintptr_t*>(place));
        }
    }
}

} // namespace

LinkageTable linkageTableOf(const std::string& library)
{
    std::pair<std::string, LinkageTable> search("/" + library, {});
    dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* data) {
            auto& [name, table] = *static_cast<std::pair<std::string, LinkageTable>*>(data);
            if (std::string(object->dlpi_name).find(name) == std::string::npos) {
                return 0;
            }
            for (int i = 0; i < object->dlpi_phnum; ++i) {
                if (object->dlpi_phdr[i].p_type == PT_DYNAMIC) {
                    readTable(*object,
                              reinterpret_cast<const ElfW(Dyn)*>(object->dlpi_addr +
                                                                 object->dlpi_phdr[i].p_vaddr),
                              table);
                }
            }
            return 1;
        },
        &search);
    return search.second;
}

std::vector<std::string> mappingsWith(const std::string& text)
{
    std::vector<std::string> found;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(text) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

} // namespace company
