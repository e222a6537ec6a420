// A writer that is killed anywhere leaves a file with every frame that it called written.

#include "client/block_writer.h"
#include "client/error.h"
#include "client/recording.h"
#include "recording_account.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

using namespace zrn;

namespace
{

/// How often it is killed.
int killCount()
{
    constexpr int usual = 30;
    const char* const asked = std::getenv("ZRN_KILLS");
    return asked != nullptr ? std::atoi(asked) : usual;
}

/// Records to @p path until it says that so many frames are written, and for a while more.
/// @return what it told at the end, added and written
std::pair<std::uint64_t, std::uint64_t> recordAndKill(const std::string& path,
                                                      const std::string& accountPath,
                                                      std::uint64_t frames,
                                                      std::chrono::microseconds more)
{
    const RecordingAccount account(accountPath.c_str());
    if (!account.isOpen()) {
        ADD_FAILURE() << "no account";
        return {};
    }
    account.added() = 0;
    account.written() = 0;
    std::string program = RECORDING_WRITER;
    std::string first = path;
    std::string second = accountPath;
    const std::array<char*, 4> arguments = {program.data(), first.data(), second.data(), nullptr};
    pid_t child = 0;
    if (::posix_spawn(&child, RECORDING_WRITER, nullptr, nullptr, arguments.data(), environ) != 0) {
        ADD_FAILURE() << "not started";
        return {};
    }
    while (account.written() < frames) {
        if (::waitpid(child, nullptr, WNOHANG) != 0) {
            ADD_FAILURE() << "it ended by itself";
            return {};
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    std::this_thread::sleep_for(more);
    const std::uint64_t written = account.written();
    ::kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
    return {account.added(), written};
}

} // namespace

TEST(RecordingKillTest, LosesAtMostWhatWasInFlight)
{
    const QTemporaryDir folder;
    const std::string path = folder.filePath(QStringLiteral("killed.zrnrec")).toStdString();
    const std::string account = folder.filePath(QStringLiteral("account")).toStdString();
    std::mt19937 random(std::random_device{}());
    constexpr std::uint64_t queueBytes = 1U << 20;
    for (int round = 0; round < killCount(); ++round) {
        const std::uint64_t frames = random() % 250;
        const auto [added, written] =
            recordAndKill(path, account, frames, std::chrono::microseconds(random() % 3000));
        SCOPED_TRACE(std::to_string(frames) + " frames asked for, " + std::to_string(written) +
                     " written of " + std::to_string(added));
        try {
            const Recording reader(path);
            const auto found = static_cast<std::uint64_t>(reader.frameCount());
            EXPECT_GE(found, written);
            EXPECT_LE(found, added);
            EXPECT_TRUE(reader.damage().empty());
            for (std::uint64_t i = 0; i < found; ++i) {
                EXPECT_EQ(reader.header(static_cast<int>(i)).number, i);
            }
            if (found > 0) {
                const std::uint64_t frameBytes = reader.header(0).payloadBytes();
                // Queued, in the buffers, in the hands of the two threads.
                EXPECT_LE((added - found) * frameBytes,
                          queueBytes + BlockWriter::bufferCount * BlockWriter::bufferBytes +
                              2 * frameBytes);
                EXPECT_GE(reader.notes().size(), (written + 4) / 5);
            }
        } catch (const Error&) {
            EXPECT_EQ(written, 0U) << "its header comes first";
        }
        ::unlink(path.c_str());
    }
}
