// What the kernel's files tell of cameras, and of who uses them.

#include "client/bus.h"
#include "made_up_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using zrn::Holder;
using zrn::Use;

namespace
{

class BusTest : public testing::Test
{
protected:
    zrn::Bus bus() const { return zrn::Bus(system.root(), zrn::SerialCache({})); }
    zrn::BusCamera only() const
    {
        const std::vector<zrn::BusCamera> cameras = bus().camerasAndHolders();
        return cameras.size() == 1 ? cameras.front() : zrn::BusCamera{};
    }

    MadeUpSystem system;
};

} // namespace

TEST_F(BusTest, FindsOnlyServedCamerasInTheOrderOfTheirPorts)
{
    system.plug("1-10", 4);
    system.plug("1-9", 5);
    system.plug("1-2.3", 6);
    system.plug("2-1", 3);
    system.plug("1-3", 7, "0483", "5740");
    system.plug("1-4", 8, "1d6b", "5750");
    std::vector<std::string> ports;
    for (const zrn::BusCamera& camera : bus().cameras()) {
        ports.push_back(camera.port + " " + camera.node());
    }
    EXPECT_THAT(ports, ElementsAre("1-2.3 /dev/bus/usb/001/006", "1-9 /dev/bus/usb/001/005",
                                   "1-10 /dev/bus/usb/001/004", "2-1 /dev/bus/usb/002/003"));
}

TEST_F(BusTest, NoBusIsNoCamera)
{
    EXPECT_THAT(zrn::Bus("/nonexistent", zrn::SerialCache({})).camerasAndHolders(), IsEmpty());
}

TEST_F(BusTest, ACameraThatIsLeavingIsNone)
{
    system.plug("1-1", 4);
    system.remove("/sys/bus/usb/devices/1-1/devnum");
    EXPECT_THAT(bus().cameras(), IsEmpty());
}

TEST_F(BusTest, TellsNodeAccessSpeedAndDescriptors)
{
    system.plug("1-1", 7);
    system.write("/sys/bus/usb/devices/1-1/descriptors", std::string("\x12\x01\0\x02", 4));
    zrn::BusCamera camera = only();
    EXPECT_TRUE(camera.nodeExists);
    EXPECT_TRUE(camera.accessible);
    EXPECT_EQ(camera.place(), "001/007");
    EXPECT_EQ(camera.speed(), "5 Gbit/s");
    EXPECT_EQ(camera.descriptors, std::string("\x12\x01\0\x02", 4));
    EXPECT_THAT(camera.kernelDrivers, IsEmpty());

    system.write("/sys/bus/usb/devices/1-1/speed", "480\n");
    system.remove("/dev/bus/usb/001/007");
    camera = only();
    EXPECT_EQ(camera.speed(), "480 Mbit/s");
    EXPECT_FALSE(camera.nodeExists);
    EXPECT_FALSE(camera.accessible);
    system.write("/sys/bus/usb/devices/1-1/speed", "unknown\n");
    EXPECT_EQ(only().speed(), "");
}

TEST_F(BusTest, AClaimedCameraIsHeldByWhoHasItsNodeOpen)
{
    system.plug("1-1", 7);
    system.plug("1-2", 8);
    system.bind("1-1", 0, "usbfs");
    system.run(4711, "zrnview", "/dev/bus/usb/001/007");
    system.run(12, "idle", "/dev/bus/usb/001/999");
    const std::vector<zrn::BusCamera> cameras = bus().camerasAndHolders();
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].use, Use::Held);
    EXPECT_THAT(cameras[0].holders, ElementsAre(Holder{4711, "zrnview"}));
    EXPECT_EQ(cameras[0].holderText(), "zrnview (pid 4711)");
    EXPECT_TRUE(cameras[0].isHeldElsewhere());
    EXPECT_THAT(cameras[0].kernelDrivers, IsEmpty());
    EXPECT_EQ(cameras[1].use, Use::Free);
    EXPECT_THAT(cameras[1].holders, IsEmpty());
    EXPECT_EQ(cameras[1].holderText(), "");

    // A glance tells that it is held, and not by whom.
    EXPECT_EQ(bus().cameras()[0].use, Use::Held);
    EXPECT_THAT(bus().cameras()[0].holders, IsEmpty());
}

TEST_F(BusTest, AnOpenNodeAloneHoldsNothing)
{
    system.plug("1-1", 7);
    system.run(80, "lsusb", "/dev/bus/usb/001/007");
    system.run(9, "doctor", "/dev/bus/usb/001/007");
    const zrn::BusCamera camera = only();
    EXPECT_EQ(camera.use, Use::Open);
    EXPECT_FALSE(camera.isHeldElsewhere());
    EXPECT_THAT(camera.holders, ElementsAre(Holder{9, "doctor"}, Holder{80, "lsusb"}));
}

TEST_F(BusTest, AnOpenNodeCountsWhereNoClaimWouldShow)
{
    system.plug("1-1", 7);
    system.remove("/sys/bus/usb/devices/1-1:1.0");
    system.remove("/sys/bus/usb/devices/1-1:1.1");
    EXPECT_EQ(only().use, Use::Free);
    system.run(80, "host", "/dev/bus/usb/001/007");
    EXPECT_EQ(only().use, Use::Held);
}

TEST_F(BusTest, AClaimWithoutAVisibleProcessIsSomebodyElses)
{
    system.plug("1-1", 7);
    system.bind("1-1", 1, "usbfs");
    const zrn::BusCamera camera = only();
    EXPECT_EQ(camera.use, Use::Held);
    EXPECT_TRUE(camera.isHeldElsewhere());
    EXPECT_EQ(camera.holderText(), "a program that this user may not see");
}

TEST_F(BusTest, AClaimThatEndsWhileHoldersAreLookedForIsNone)
{
    system.plug("1-1", 7);
    system.plug("1-2", 8);
    system.bind("1-1", 0, "usbfs");
    system.run(80, "slow", "/dev/bus/usb/001/008");
    // The look at the holders waits for the name of this program.
    const std::string name = system.root() + "/proc/80/comm";
    system.remove("/proc/80/comm");
    ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
    std::thread holder([&] {
        std::ofstream comm(name);
        system.remove("/sys/bus/usb/devices/1-1:1.0/driver");
        comm << "slow\n";
    });
    const std::vector<zrn::BusCamera> cameras = bus().camerasAndHolders();
    holder.join();
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].use, Use::Free);
    EXPECT_EQ(cameras[0].holderText(), "");
    EXPECT_THAT(cameras[1].holders, ElementsAre(Holder{80, "slow"}));
}

TEST_F(BusTest, WhatThisProcessHoldsIsNotHeldElsewhere)
{
    system.plug("1-1", 7);
    system.bind("1-1", 0, "usbfs");
    system.run(::getpid(), "test", "/dev/bus/usb/001/007");
    EXPECT_EQ(only().use, Use::Held);
    EXPECT_FALSE(only().isHeldElsewhere());
}

TEST_F(BusTest, TheKernelsDriverHoldsACameraOnceItIsWatched)
{
    system.plug("1-1", 7);
    system.bind("1-1", 0, "uvcvideo");
    system.bind("1-1", 1, "uvcvideo");
    system.write("/sys/bus/usb/devices/1-1:1.0/video4linux/video3/name", "camera\n");
    system.write("/dev/video3", "");
    EXPECT_EQ(only().use, Use::Free);
    EXPECT_THAT(only().kernelDrivers, ElementsAre("uvcvideo"));
    EXPECT_THAT(only().videoNodes, ElementsAre("/dev/video3"));
    system.run(31, "webcam", "/dev/video3");
    EXPECT_EQ(only().use, Use::Held);
    EXPECT_THAT(only().holders, ElementsAre(Holder{31, "webcam"}));
}

TEST_F(BusTest, NodesOfTheSameNameElsewhereAreOthers)
{
    system.plug("1-1", 7);
    system.bind("1-1", 0, "usbfs");
    system.write("/elsewhere/dev/bus/usb/001/007", "");
    system.run(5, "other", "/elsewhere/dev/bus/usb/001/007");
    EXPECT_THAT(only().holders, IsEmpty());
}

TEST_F(BusTest, ProcessesThatTellNothingAreSkipped)
{
    system.plug("1-1", 7);
    system.write("/proc/77/comm", "secret\n");
    system.write("/proc/meminfo", "\n");
    system.run(78, "", "/dev/bus/usb/001/007");
    EXPECT_THAT(only().holders, ElementsAre(Holder{78, ""}));
    EXPECT_EQ(only().holderText(), "a program (pid 78)");
}

TEST_F(BusTest, RemembersASerialUntilTheCameraIsPluggedInAgain)
{
    system.plug("1-1", 7);
    zrn::Bus watched = bus();
    EXPECT_EQ(watched.cameras().front().serial, "");
    watched.remember(watched.cameras().front(), "ZR4711");
    EXPECT_EQ(watched.cameras().front().serial, "ZR4711");

    system.remove("/sys/bus/usb/devices/1-1");
    system.plug("1-1", 8);
    EXPECT_EQ(watched.cameras().front().serial, "");
}

TEST_F(BusTest, ANumberThatComesRoundAgainIsAnotherCamera)
{
    system.plug("1-1", 7);
    zrn::Bus watched = bus();
    watched.remember(watched.cameras().front(), "ZR4711");
    // Kept elsewhere, the old entry does not give its number to the new one.
    std::filesystem::rename(system.root() + "/sys/bus/usb/devices/1-1", system.root() + "/left");
    system.plug("1-1", 7);
    EXPECT_EQ(watched.cameras().front().serial, "");
}

TEST_F(BusTest, ASerialStaysKnownWhenTheKernelForgetsWhenItMadeTheEntry)
{
    system.plug("1-1", 7);
    zrn::Bus watched = bus();
    watched.remember(watched.cameras().front(), "ZR4711");
    std::filesystem::last_write_time(system.root() + "/sys/bus/usb/devices/1-1/devnum", {});
    EXPECT_EQ(watched.cameras().front().serial, "ZR4711");
}
