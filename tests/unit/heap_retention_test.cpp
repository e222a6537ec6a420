// Pages that the heap gives back cost each grab several times its own work.

#include "driver_test.h"
#include "heap_retention.h"

#include <QSize>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <ostream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

using CameraSpace::ImageBlock;

namespace
{

long pageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

/// Bytes of memory that the process holds. Allocates nothing: a block of its own between the images
/// would move the next of them to fresh pages.
long residentSize()
{
    std::array<char, 128> text{};
    const int file = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(file, text.data(), text.size() - 1);
    close(file);
    long total = 0;
    long resident = 0;
    EXPECT_EQ(length > 0 ? std::sscanf(text.data(), "%ld %ld", &total, &resident) : 0, 2);
    return resident * sysconf(_SC_PAGESIZE);
}

struct Host {
    QSize size;
    bool changesImages;
    bool grabsInThread; ///< whose part of the heap ends after 64 MB
    bool deletesAtOnce; ///< else the oldest pair with each grab
};

void PrintTo(const Host& host, std::ostream* out)
{
    *out << host.size.width() << "x" << host.size.height()
         << (host.changesImages ? ", changes" : ", reads")
         << (host.grabsInThread ? ", in a thread" : "")
         << (host.deletesAtOnce ? ", deletes all at once" : ", deletes the oldest");
}

class SteadyHost : public DriverTest, public testing::WithParamInterface<Host>
{
protected:
    SteadyHost()
        : m_device(connect(2, GetParam().size.width(), GetParam().size.height()))
        , m_frame(std::size_t{2} *
                      static_cast<std::size_t>(GetParam().size.width() * GetParam().size.height()),
                  0x30)
    {
    }
    ~SteadyHost() override { qDeleteAll(m_images); }

    void grabAndDelete()
    {
        ASSERT_TRUE(
            bus.deliver(m_device, GetParam().size.width(), GetParam().size.height(), m_frame));
        ASSERT_EQ(code(camera.grabImage(m_images)), 0U);
        if (GetParam().changesImages) {
            m_images.back()->data.data()[0] = 1;
        }
        if (m_images.size() > 2 * keptPairs) {
            const auto end = GetParam().deletesAtOnce ? m_images.end() : m_images.begin() + 2;
            qDeleteAll(m_images.begin(), end);
            m_images.erase(m_images.begin(), end);
        }
        log.clear();
    }

    static constexpr int keptPairs = 8;
    static constexpr int grabs = 5 * keptPairs;
    long faults = 0;
    long growth = 0;

    void run()
    {
        for (int i = 0; i < grabs; ++i) {
            grabAndDelete();
        }
        const long faultsBefore = pageFaults();
        const long sizeBefore = residentSize();
        for (int i = 0; i < grabs; ++i) {
            grabAndDelete();
        }
        faults = pageFaults() - faultsBefore;
        growth = residentSize() - sizeBefore;
    }

private:
    fakeuvc::Camera& m_device;
    std::vector<unsigned char> m_frame;
    QList<ImageBlock*> m_images;
};

} // namespace

TEST_P(SteadyHost, FaultsNoPagesAndDoesNotGrow)
{
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    if (GetParam().grabsInThread) {
        std::thread([this] { run(); }).join();
    } else {
        run();
    }
    // One pair of the smallest images that is faulted in anew costs a hundred and fifty; what is
    // left is the test's own.
    EXPECT_LT(faults, grabs / 4);
    // The kernel counts a thread's last 64 pages late.
    EXPECT_LT(growth, 1024 * 1024);
}

INSTANTIATE_TEST_SUITE_P(
    HeapRetention, SteadyHost,
    testing::Values(Host{{640, 480}, false, false, true}, Host{{640, 480}, true, false, true},
                    Host{{1280, 1024}, false, false, false}, Host{{1280, 1024}, false, true, true},
                    Host{{1280, 1024}, false, false, true}, Host{{1280, 1024}, true, true, true},
                    Host{{2616, 1991}, false, false, false}));

namespace
{

constexpr std::size_t mebi = 1024 * 1024;

/// Whether a block gets a mapping of its own, which goes back to the system with it.
bool isMapped(std::size_t size)
{
    const std::size_t before = mallinfo2().hblks;
    void* volatile block = std::malloc(size);
    const std::size_t after = mallinfo2().hblks;
    std::free(block);
    return after > before;
}

} // namespace

TEST(LetHeapKeep, MovesTheLimits)
{
    ASSERT_FALSE(isNewMemoryLocked());
    letHeapKeep(40 * mebi);
    EXPECT_FALSE(isMapped(15 * mebi));
}

TEST(LetHeapKeep, LeavesAProcessAloneThatLocksItsMemory)
{
    if (mlockall(MCL_FUTURE) != 0) {
        GTEST_SKIP() << "this user may not lock memory";
    }
    EXPECT_TRUE(isNewMemoryLocked());
    letHeapKeep(40 * mebi);
    munlockall();
    EXPECT_FALSE(isNewMemoryLocked());
    EXPECT_TRUE(isMapped(15 * mebi));
}
