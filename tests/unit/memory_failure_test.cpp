// Memory that cannot be had: no exception reaches the host, nothing is left locked or half made.

#include "driver_test.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using CameraSpace::ImageBlock;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// Allocations of these sizes fail, after as many of them as are let through.
std::atomic<std::size_t> failingSize = 0; // 0 for none
std::atomic<std::size_t> failingRange = 0;
std::atomic<int> letThrough = 0;
std::atomic<int> refusals = 0;

bool shallFail(std::size_t size)
{
    const std::size_t smallest = failingSize;
    const bool fails =
        smallest != 0 && size >= smallest && size <= smallest + failingRange && letThrough-- <= 0;
    refusals += fails ? 1 : 0;
    return fails;
}

} // namespace

// glibc's own allocation, under the names that it has beside malloc and realloc.
extern "C" void* __libc_malloc(std::size_t size); // NOLINT(bugprone-reserved-identifier)
extern "C" void* __libc_realloc(void* memory,     // NOLINT(bugprone-reserved-identifier)
                                std::size_t size);

/// Takes the place of malloc for Qt and for operator new alike, and the next one of realloc.
extern "C" void* malloc(std::size_t size) noexcept
{
    if (shallFail(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

extern "C" void* realloc(void* memory, std::size_t size) noexcept
{
    if (shallFail(size)) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(memory, size);
}

namespace
{

constexpr int width = 640;
constexpr int height = 480;
constexpr std::size_t slotSize = std::size_t{2} * width * height + 8;
constexpr int loggedFrames = 16; // of each stream, the first
constexpr std::size_t imageSize = std::size_t{1} * width * height + 8;

constexpr int noFilter = 77;

/// From here on, the calling thread is killed for any system call but those of contended locks and
/// of its end. False where the kernel has no such filters.
bool forbidSystemCallsButLocks()
{
    const auto allowed = [](int number) {
        return std::array{
            sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
            sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    };
    std::vector<sock_filter> rules = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const int number : {__NR_futex, __NR_exit_group}) {
        const auto rule = allowed(number);
        rules.insert(rules.end(), rule.begin(), rule.end());
    }
    rules.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    const sock_fprog program{static_cast<unsigned short>(rules.size()), rules.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class MemoryFailure : public DriverTest
{
protected:
    MemoryFailure()
        : m_device(connect(2, width, height))
    {
    }
    void TearDown() override
    {
        failingSize = 0;
        DriverTest::TearDown();
    }

    /// Makes allocations of @p size and up to @p range bytes more fail, from the one behind @p
    /// passing.
    static void failAllocations(std::size_t size, std::size_t range = 0, int passing = 0)
    {
        letThrough = passing;
        failingRange = range;
        refusals = 0;
        failingSize = size;
    }
    /// Starts the stream and fills one slot.
    void cacheFrame()
    {
        ASSERT_EQ(code(camera.startStream(0)), 0U);
        sendFrame();
    }
    void sendFrame()
    {
        std::vector<unsigned char> data(slotSize - 8, 0x30);
        ASSERT_TRUE(bus.deliver(m_device, width, height, data));
        log.clear();
    }
    /// Makes the next frame the one that measures the frame rate.
    void endRateInterval() { camera.m_fpsTimer = camera.m_fpsTimer.addSecs(-2); }
    unsigned grab()
    {
        const unsigned result = code(camera.grabImage(m_images));
        failingSize = 0;
        return result;
    }
    void expectNothingGrabbed()
    {
        EXPECT_THAT(m_images, IsEmpty());
        EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
        for (QMutex* lock : camera.m_bufferLocks) {
            EXPECT_TRUE(lock->tryLock());
            lock->unlock();
        }
        // The next frame finds everything in order.
        sendFrame();
        EXPECT_EQ(grab(), 0U);
        EXPECT_THAT(m_images, SizeIs(2));
        qDeleteAll(m_images);
    }

    fakeuvc::Camera& m_device;
    QList<ImageBlock*> m_images;
};

} // namespace

TEST_F(MemoryFailure, WithoutMemoryForTheRingTheStreamDoesNotStart)
{
    for (const int passing : {0, 1, 15}) {
        failAllocations(slotSize, 0, passing);
        EXPECT_EQ(code(camera.startStream(0)), 1052U);
        failingSize = 0;
        EXPECT_THAT(log.lines(), SizeIs(1));
        EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
        EXPECT_THAT(camera.m_frameBuffers, IsEmpty());
        EXPECT_THAT(camera.m_bufferLocks, IsEmpty());
        EXPECT_FALSE(camera.m_isStreaming);
        EXPECT_THAT(bus.callTexts(), IsEmpty());
        log.clear();
    }
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_frameBuffers.size(), 16);
}

TEST_F(MemoryFailure, WithoutMemoryForMoreSlotsTheOldOnesStay)
{
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    ASSERT_EQ(code(camera.stopStream(0)), 0U);
    const QList<unsigned char*> buffers = camera.m_frameBuffers;
    camera.m_cacheFrameCount = 20;
    failAllocations(slotSize, 0, 2);
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    failingSize = 0;
    EXPECT_EQ(camera.m_frameBuffers, buffers);
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_frameBuffers.size(), 20);
}

TEST_F(MemoryFailure, WithoutMemoryForTheListsOfTheRingTheStreamDoesNotStart)
{
    constexpr int count = 300;
    constexpr std::size_t listSize = count * sizeof(void*);
    constexpr std::size_t largestHeader = 64;
    camera.m_cacheFrameCount = count;
    // Buffers, locks and sizes in turn; each attempt keeps the room that it got.
    for (const int passing : {0, 1, 1}) {
        failAllocations(listSize, largestHeader, passing);
        EXPECT_EQ(code(camera.startStream(0)), 1052U);
        failingSize = 0;
        EXPECT_THAT(log.lines(), SizeIs(1));
        EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
        EXPECT_THAT(camera.m_frameBuffers, IsEmpty());
        EXPECT_THAT(camera.m_bufferLocks, IsEmpty());
        EXPECT_THAT(bus.callTexts(), IsEmpty());
        log.clear();
    }
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_bufferLocks.size(), count);
}

TEST_F(MemoryFailure, FramesAreCachedWithoutAllocation)
{
    camera.m_grabTimeout = 0;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    for (int i = 0; i < loggedFrames; ++i) {
        sendFrame();
    }

    std::vector<unsigned char> data(slotSize - 8, 0x30);
    uvc_frame_t frame{};
    frame.data = data.data();
    frame.data_bytes = data.size();
    frame.width = width;
    frame.height = height;
    // Queues of every length, and of none at all after a discard.
    for (int i = 0; i < 500; ++i) {
        if (i % 100 == 0) {
            camera.discardFrames(0);
            camera.m_receivedFrameCount = loggedFrames;
        }
        if (i % 7 == 0) {
            camera.grabImage(m_images);
        }
        if (i % 37 == 0) { // with unread frames
            camera.stopStream(0);
            ASSERT_EQ(code(camera.startStream(0)), 0U);
            camera.m_receivedFrameCount = loggedFrames;
        }
        if (i == 490) {
            endRateInterval();
        }
        failAllocations(1, std::numeric_limits<std::size_t>::max() - 1);
        EXPECT_NO_THROW(CZRNCamera::frameTriggered(&frame, &camera));
        failingSize = 0;
        EXPECT_EQ(refusals, 0);
    }
    EXPECT_THAT(camera.m_frameIndexQueue, SizeIs(16));
    EXPECT_GT(camera.m_frameRate, 0.0);
    qDeleteAll(m_images);
}

// A frame that waits for the kernel makes libuvc's thread late for the next.
TEST_F(MemoryFailure, FramesAreCachedWithoutSystemCalls)
{
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    for (int i = 0; i < loggedFrames; ++i) {
        sendFrame();
    }
    std::vector<unsigned char> data(slotSize - 8, 0x30);
    uvc_frame_t frame{};
    frame.data = data.data();
    frame.data_bytes = data.size();
    frame.width = width;
    frame.height = height;

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (!forbidSystemCallsButLocks()) {
            _exit(noFilter);
        }
        for (int i = 0; i < 500; ++i) {
            if (i == 250) {
                endRateInterval();
            }
            CZRNCamera::frameTriggered(&frame, &camera);
        }
        _exit(camera.m_frameRate > 0.0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == noFilter) {
        GTEST_SKIP() << "no system call filters here";
    }
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(MemoryFailure, WithoutMemoryForAnImageTheFrameIsLost)
{
    cacheFrame();
    for (const int passing : {0, 1}) {
        failAllocations(imageSize, 64, passing);
        EXPECT_EQ(grab(), 1035U);
        expectNothingGrabbed();
        m_images.clear();
        sendFrame();
    }
}

TEST_F(MemoryFailure, AnExceptionOutOfTheSplitterStaysInside)
{
    cacheFrame();
    failAllocations(sizeof(ImageBlock));
    EXPECT_EQ(grab(), 513U);
    expectNothingGrabbed();
}
