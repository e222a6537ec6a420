#include "launcher/child.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace zrnsim
{

namespace
{

sigset_t forwarded()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2}) {
        sigaddset(&set, signal);
    }
    return set;
}

std::string nameOf(const std::string& entry)
{
    return entry.substr(0, entry.find('=') + 1);
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

int forwardableSignals()
{
    const sigset_t set = forwarded();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    const int fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return fd;
}

pid_t startCommand(const std::vector<std::string>& command,
                   const std::vector<std::string>& environment)
{
    std::vector<std::string> arguments = command;
    std::vector<std::string> entries = environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const bool isReplaced =
            std::any_of(environment.begin(), environment.end(),
                        [&](const auto& replaced) { return nameOf(replaced) == nameOf(text); });
        if (!isReplaced) {
            entries.push_back(text);
        }
    }

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    const sigset_t defaults = forwarded();
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, arguments.front().c_str(), nullptr, &attributes,
                                   pointers(arguments).data(), pointers(entries).data());
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), arguments.front());
    }
    return pid;
}

int exitStatus(int waitStatus)
{
    return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

} // namespace zrnsim
