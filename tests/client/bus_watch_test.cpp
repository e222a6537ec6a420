// Cameras that arrive and leave, as told by a watch of the bus.

#include "client/bus_watch.h"
#include "made_up_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <poll.h>
#include <set>
#include <thread>

using namespace std::chrono_literals;
using testing::ElementsAre;
using zrn::BusEvent;
using zrn::BusWatch;
using Clock = std::chrono::steady_clock;

namespace
{

/// No machine is so slow that what is waited for takes longer.
constexpr auto patience = 60s;
/// Less than from one look to the next.
constexpr auto atOnce = 100ms;

std::string textOf(const BusEvent& event)
{
    const char* const kinds[] = {"left", "arrived", "changed"};
    return std::string(kinds[static_cast<int>(event.kind)]) + ' ' + event.camera.port + ' ' +
           event.camera.place();
}

/// So many arrivals and departures, as text; fewer when they do not come. While an entry of a
/// made-up system is being written or removed, it changes besides.
std::vector<std::string> take(BusWatch& watch, std::size_t count)
{
    std::vector<std::string> events;
    while (events.size() < count) {
        const std::optional<BusEvent> event = watch.next(patience);
        if (!event) {
            break;
        }
        if (event->kind != BusEvent::Kind::Changed) {
            events.push_back(textOf(*event));
        }
    }
    return events;
}

/// Whether a camera changes in such a way.
bool waitForChange(BusWatch& watch, const std::function<bool(const zrn::BusCamera&)>& isWanted)
{
    while (const std::optional<BusEvent> event = watch.next(patience)) {
        if (event->kind == BusEvent::Kind::Changed && isWanted(event->camera)) {
            return true;
        }
    }
    return false;
}

bool isReadable(const BusWatch& watch, std::chrono::milliseconds longest)
{
    pollfd file{watch.descriptor(), POLLIN, 0};
    return ::poll(&file, 1, static_cast<int>(longest.count())) == 1;
}

class BusWatchTest : public testing::Test
{
protected:
    void unplug(const std::string& port) { system.remove("/sys/bus/usb/devices/" + port); }

    MadeUpSystem system;
};

} // namespace

TEST_F(BusWatchTest, WhatIsThereArrives)
{
    system.plug("2-1", 9);
    system.plug("1-4", 3);
    system.plug("1-3", 7, "0483", "5740");
    BusWatch watch(zrn::busReaders(system.root()));
    EXPECT_THAT(take(watch, 2), ElementsAre("arrived 1-4 001/003", "arrived 2-1 002/009"));
    EXPECT_FALSE(watch.next(0ms));
}

TEST_F(BusWatchTest, TellsDeparturesAndArrivals)
{
    BusWatch watch(zrn::busReaders(system.root()));
    EXPECT_FALSE(watch.next(0ms));
    system.plug("1-4", 3);
    EXPECT_THAT(take(watch, 1), ElementsAre("arrived 1-4 001/003"));
    unplug("1-4");
    EXPECT_THAT(take(watch, 1), ElementsAre("left 1-4 001/003"));
}

TEST_F(BusWatchTest, AReplugBetweenTwoLooksIsADepartureAndAnArrival)
{
    system.plug("1-4", 3);
    BusWatch watch(zrn::busReaders(system.root()));
    EXPECT_THAT(take(watch, 1), ElementsAre("arrived 1-4 001/003"));
    system.write("/sys/bus/usb/devices/1-4/devnum", "4\n");
    EXPECT_THAT(take(watch, 2), ElementsAre("left 1-4 001/003", "arrived 1-4 001/004"));
}

TEST_F(BusWatchTest, TellsWhenAccessUseAndSerialChange)
{
    system.plug("1-4", 3);
    const zrn::BusReaders bus = zrn::busReaders(system.root());
    BusWatch watch(bus);
    EXPECT_THAT(take(watch, 1), ElementsAre("arrived 1-4 001/003"));

    system.remove("/dev/bus/usb/001/003");
    EXPECT_TRUE(waitForChange(watch, [](const auto& camera) { return !camera.accessible; }));
    system.bind("1-4", 0, "usbfs");
    EXPECT_TRUE(
        waitForChange(watch, [](const auto& camera) { return camera.use == zrn::Use::Held; }));
    bus.remember(bus.cameras().front(), "ZR4711");
    EXPECT_TRUE(waitForChange(watch, [](const auto& camera) { return camera.serial == "ZR4711"; }));
}

TEST_F(BusWatchTest, ItsDescriptorWakesAnEventLoopUntilEverythingIsTaken)
{
    system.plug("1-3", 3);
    system.plug("1-4", 4);
    BusWatch watch(zrn::busReaders(system.root()));
    ASSERT_TRUE(isReadable(watch, atOnce));
    EXPECT_TRUE(watch.next(0ms));
    EXPECT_TRUE(isReadable(watch, atOnce));
    EXPECT_TRUE(watch.next(0ms));
    while (watch.next(0ms)) {
    }
    unplug("1-3");
    std::string last;
    const auto end = Clock::now() + patience;
    while (last != "left 1-3 001/003" && Clock::now() < end && isReadable(watch, patience)) {
        while (const std::optional<BusEvent> event = watch.next(0ms)) {
            last = textOf(*event);
        }
    }
    EXPECT_EQ(last, "left 1-3 001/003");
}

TEST_F(BusWatchTest, RestsWhileNothingHappens)
{
    int looks = 0;
    zrn::BusReaders bus = zrn::busReaders(system.root());
    bus.cameras = [&looks, read = bus.cameras] {
        ++looks;
        return read();
    };
    BusWatch watch(bus);
    const auto begin = Clock::now();
    EXPECT_FALSE(watch.next(600ms));
    EXPECT_GE(Clock::now() - begin, 600ms);
    EXPECT_GE(looks, 2);
    EXPECT_LE(looks, 4); // the first, two in 600 ms, and one that the end may coincide with
}

TEST_F(BusWatchTest, StoppingWakesWhoeverWaits)
{
    BusWatch watch(zrn::busReaders(system.root()));
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back(
            [&watch] { EXPECT_FALSE(watch.next(std::chrono::milliseconds::max())); });
    }
    std::this_thread::sleep_for(20ms);
    watch.stop();
    EXPECT_TRUE(isReadable(watch, atOnce));
    for (std::thread& thread : threads) {
        thread.join();
    }
    system.plug("1-4", 3);
    EXPECT_FALSE(watch.next(300ms));
    EXPECT_TRUE(isReadable(watch, 0ms));
}

TEST_F(BusWatchTest, EveryArrivalIsTakenOnce)
{
    constexpr int cameras = 20;
    BusWatch watch(zrn::busReaders(system.root()));
    std::mutex mutex;
    std::vector<std::string> events;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (const std::optional<BusEvent> event = watch.next(patience)) {
                const std::lock_guard lock(mutex);
                if (event->kind == BusEvent::Kind::Arrived) {
                    events.push_back(textOf(*event));
                }
                if (events.size() == cameras) {
                    watch.stop();
                }
            }
        });
    }
    for (int i = 1; i <= cameras; ++i) {
        system.plug("1-" + std::to_string(i), i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(events.size(), static_cast<std::size_t>(cameras));
    EXPECT_EQ(std::set<std::string>(events.begin(), events.end()).size(), events.size());
}
