#include "process_state.h"

#include <array>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace company
{
namespace
{

template <typename Object>
std::string bytesOf(const Object& object)
{
    return {reinterpret_cast<const char*>(&object), sizeof object};
}

std::string countIn(const char* folder)
{
    return std::to_string(std::distance(std::filesystem::directory_iterator(folder),
                                        std::filesystem::directory_iterator()));
}

std::string freeThreadKeys()
{
    std::vector<pthread_key_t> keys;
    for (pthread_key_t key = 0; pthread_key_create(&key, nullptr) == 0;) {
        keys.push_back(key);
    }
    for (const pthread_key_t key : keys) {
        pthread_key_delete(key);
    }
    return std::to_string(keys.size());
}

} // namespace

std::map<std::string, std::string> lastingState()
{
    std::map<std::string, std::string> state;
    for (int number = 1; number < SIGRTMIN; ++number) {
        struct sigaction action {
        };
        if (sigaction(number, nullptr, &action) == 0) {
            state["action of signal " + std::to_string(number)] =
                std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) + " " +
                std::to_string(action.sa_flags);
        }
    }
    sigset_t mask{};
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    state["signal mask"] = bytesOf(mask);
    state["locale"] = std::setlocale(LC_ALL, nullptr);
    for (char** entry = environ; *entry; ++entry) {
        state["environment"] += std::string(*entry) + "\n";
    }
    state["folder"] = std::filesystem::current_path();
    const mode_t mode = umask(0);
    umask(mode);
    state["umask"] = std::to_string(mode);
    for (int number = 0; number < RLIM_NLIMITS; ++number) {
        rlimit limit{};
        getrlimit(static_cast<__rlimit_resource>(number), &limit);
        state["limit " + std::to_string(number)] = bytesOf(limit);
    }
    state["priority"] = std::to_string(getpriority(PRIO_PROCESS, 0));
    state["rounding"] = std::to_string(std::fegetround());
    std::array<char, 32> name{};
    prctl(PR_GET_NAME, name.data());
    state["name of the thread"] = name.data();
    state["dumpable"] = std::to_string(prctl(PR_GET_DUMPABLE));
    return state;
}

std::map<std::string, std::string> processState()
{
    std::map<std::string, std::string> state = lastingState();
    state["threads"] = countIn("/proc/self/task");
    state["descriptors"] = countIn("/proc/self/fd");
    state["free thread keys"] = freeThreadKeys();
    return state;
}

} // namespace company
