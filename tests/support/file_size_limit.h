#pragma once

#include <csignal>
#include <sys/resource.h>

/// Lets this process write no larger files: for whoever writes them, a disk that is full.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        ::signal(SIGXFSZ, SIG_IGN); // an error instead
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const struct rlimit small = {bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    struct rlimit m_before {
    };
};
