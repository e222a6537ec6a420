#include "client/serial_cache.h"
#include "made_up_system.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

using zrn::SerialCache;

namespace
{

class SerialCacheTest : public testing::Test
{
protected:
    MadeUpSystem system;
    const std::string folder = system.root() + "/zrncamera";
};

} // namespace

TEST_F(SerialCacheTest, OtherProcessesReadWhatOneHasStored)
{
    SerialCache(folder).store("1-2", "7-a", "ZR4711");
    EXPECT_EQ(SerialCache(folder).find("1-2", "7-a"), "ZR4711");
    EXPECT_EQ(SerialCache(folder).find("1-3", "7-a"), "");
}

TEST_F(SerialCacheTest, AnotherStayAtThePortIsAnotherCamera)
{
    SerialCache cache(folder);
    cache.store("1-2", "7-a", "ZR4711");
    EXPECT_EQ(cache.find("1-2", "8-a"), "");
    cache.store("1-2", "8-a", "ZR4712");
    EXPECT_EQ(cache.find("1-2", "8-a"), "ZR4712");
    EXPECT_EQ(SerialCache(folder).find("1-2", "7-a"), "");
}

TEST_F(SerialCacheTest, NonsenseInAFileIsNoSerial)
{
    for (const char* content : {"", "\n", "7-a", "8-a ZR1\n", "\xff\xfe\n"}) {
        system.write("/zrncamera/serial-1-2", content);
        EXPECT_EQ(SerialCache(folder).find("1-2", "7-a"), "") << content;
    }
    system.write("/zrncamera/serial-1-2", "7-a " + std::string(65, '9'));
    EXPECT_EQ(SerialCache(folder).find("1-2", "7-a"), "");
    system.write("/zrncamera/serial-1-2", "7-a ZR\x1b[2J");
    EXPECT_EQ(SerialCache(folder).find("1-2", "7-a"), "");
}

TEST_F(SerialCacheTest, WithoutAFolderTheMemoryEndsWithTheProcess)
{
    for (const std::string& unusable : {std::string(), std::string("/proc/nonexistent")}) {
        SerialCache cache(unusable);
        cache.store("1-2", "7-a", "ZR4711");
        EXPECT_EQ(cache.find("1-2", "7-a"), "ZR4711");
        EXPECT_EQ(SerialCache(unusable).find("1-2", "7-a"), "");
    }
}

TEST_F(SerialCacheTest, StoresNoNonsense)
{
    SerialCache cache(folder);
    cache.store("1-2", "7-a", "");
    cache.store("1-2", "7-a", "two words");
    cache.store("1-2", "", "ZR1");
    EXPECT_EQ(cache.find("1-2", "7-a"), "");
    EXPECT_EQ(cache.find("1-2", ""), "");
}

TEST_F(SerialCacheTest, LivesInTheFolderOfTheUsersSession)
{
    ::setenv("XDG_RUNTIME_DIR", "/run/user/4711", 1);
    EXPECT_EQ(SerialCache::folder(), "/run/user/4711/zrncamera");
    ::setenv("XDG_RUNTIME_DIR", "relative", 1);
    EXPECT_EQ(SerialCache::folder(), "");
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(SerialCache::folder(), "");
}

TEST_F(SerialCacheTest, ReadersSeeWholeEntriesWhileOthersWrite)
{
    SerialCache(folder).store("1-2", "7-a", "ZR1111111111");
    std::thread writer([this] {
        for (int i = 0; i < 200; ++i) {
            SerialCache(folder).store("1-2", "7-a", i % 2 ? "ZR1111111111" : "ZR2");
        }
    });
    for (int i = 0; i < 200; ++i) {
        const std::string serial = SerialCache(folder).find("1-2", "7-a");
        EXPECT_TRUE(serial == "ZR1111111111" || serial == "ZR2") << serial;
    }
    writer.join();
}
