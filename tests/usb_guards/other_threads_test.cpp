#include "usb_guards/other_threads.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using usbguards::waitUntilOthersHaveMoved;

namespace
{

/// A thread that stands without processor time and not asleep: it starts a program, and its child
/// cannot go on before somebody opens the pipe that it is to read.
class StandingThread
{
public:
    StandingThread()
    {
        std::string name = std::filesystem::temp_directory_path() / "standing.XXXXXX";
        m_folder = mkdtemp(name.data());
        mkfifo(pipe().c_str(), 0600);
        m_thread = std::thread([this] {
            posix_spawn_file_actions_t actions;
            posix_spawn_file_actions_init(&actions);
            posix_spawn_file_actions_addopen(&actions, 0, pipe().c_str(), O_RDONLY, 0);
            std::string program = "true";
            const std::array<char*, 2> arguments{program.data(), nullptr};
            pid_t child = 0;
            m_id = gettid();
            EXPECT_EQ(0, posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(),
                                      environ));
            m_hasMoved = true;
            waitpid(child, nullptr, 0);
            posix_spawn_file_actions_destroy(&actions);
        });
        while (!stands()) {
            std::this_thread::sleep_for(1ms);
        }
    }
    ~StandingThread()
    {
        m_thread.join();
        std::filesystem::remove_all(m_folder);
    }

    void release() const { const std::ofstream opened(pipe()); }
    bool hasMoved() const { return m_hasMoved; }

private:
    std::filesystem::path pipe() const { return m_folder / "pipe"; }

    /// The kernel lets nothing interrupt a thread that waits for a child to start.
    bool stands() const
    {
        std::string state;
        std::ifstream("/proc/self/task/" + std::to_string(m_id) + "/stat") >> state >> state >>
            state;
        return state == "D";
    }

    std::filesystem::path m_folder;
    std::atomic<pid_t> m_id = 0;
    std::atomic<bool> m_hasMoved = false;
    std::thread m_thread;
};

TEST(OtherThreads, ThoseThatSleepOrRunAreNotWaitedForLong)
{
    std::atomic<bool> end = false;
    std::thread running([&] {
        while (!end) {
        }
    });
    std::thread sleeping([&] { end.wait(false); });
    EXPECT_TRUE(waitUntilOthersHaveMoved(10s));
    end = true;
    end.notify_all();
    running.join();
    sleeping.join();
}

TEST(OtherThreads, OneThatStandsIsWaitedFor)
{
    const StandingThread standing;
    EXPECT_FALSE(waitUntilOthersHaveMoved(50ms));
    std::thread releasing([&] {
        std::this_thread::sleep_for(100ms);
        standing.release();
    });
    EXPECT_TRUE(waitUntilOthersHaveMoved(20s));
    EXPECT_TRUE(standing.hasMoved());
    releasing.join();
}

} // namespace
