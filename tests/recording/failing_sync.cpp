// Preloaded into zrnrec: a disk that fails when a file is to be on it, the one of this number.

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

[[gnu::visibility("default")]] int fsync(int)
{
    static int left = std::atoi(std::getenv("FAILING_SYNC"));
    if (--left == 0) {
        errno = EIO;
        return -1;
    }
    return 0;
}
