// To be preloaded: libuvc's linkage table stays write-protected, as on a system that seals what has
// been linked.

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" __attribute__((visibility("default"))) int mprotect(void* address, std::size_t size,
                                                               int protection) noexcept
{
    Dl_info library{};
    if ((protection & PROT_WRITE) != 0 && dladdr(address, &library) != 0 &&
        std::strstr(library.dli_fname, "libuvc.so")) {
        errno = EACCES;
        return -1;
    }
    return static_cast<int>(syscall(SYS_mprotect, address, size, protection));
}
