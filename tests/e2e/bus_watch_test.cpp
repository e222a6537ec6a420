// Virtual cameras that are unplugged and plugged in again, as told by a watch of the bus.

#include "built_driver.h"
#include "client/bus_watch.h"
#include "client/driver.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;
using zrn::BusEvent;

/// No machine is so slow that what is waited for takes longer.
constexpr auto patience = 60s;

class WatchedBus : public testing::Test
{
protected:
    ~WatchedBus() override { cable.restore(); }

    /// Passes over changes of other kinds. @return a camera without a port when there was none
    zrn::BusCamera wait(BusEvent::Kind kind)
    {
        while (const std::optional<BusEvent> event = watch.next(patience)) {
            if (event->kind == kind) {
                return event->camera;
            }
            EXPECT_EQ(event->kind, BusEvent::Kind::Changed) << event->camera.port;
        }
        ADD_FAILURE() << "nothing was told";
        return {};
    }

    VirtualCamera cable;
    zrn::BusWatch watch;
};

TEST_F(WatchedBus, TellsOfEachPlugging)
{
    zrn::BusCamera camera = wait(BusEvent::Kind::Arrived);
    const std::string port = camera.port;
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        cable.unplug();
        const zrn::BusCamera left = wait(BusEvent::Kind::Left);
        EXPECT_EQ(left.port, port);
        EXPECT_EQ(left.address, camera.address);
        cable.restore();
        camera = wait(BusEvent::Kind::Arrived);
        EXPECT_EQ(camera.port, port);
        EXPECT_NE(camera.address, left.address);
    }
}

TEST_F(WatchedBus, AReplugThatNobodySawIsADepartureAndAnArrival)
{
    const zrn::BusCamera before = wait(BusEvent::Kind::Arrived);
    cable.unplug();
    cable.restore();
    EXPECT_EQ(wait(BusEvent::Kind::Left).address, before.address);
    EXPECT_NE(wait(BusEvent::Kind::Arrived).address, before.address);
}

TEST_F(WatchedBus, TellsWhenACameraIsOpenedAndClosed)
{
    const std::shared_ptr<zrn::Driver> driver = zrn::Driver::load(builtPlugin);
    const zrn::BusCamera camera = wait(BusEvent::Kind::Arrived);
    const std::string serial = driver->open(camera);
    ASSERT_NE(serial, "");
    const auto waitForUse = [this](zrn::Use use) {
        while (const std::optional<BusEvent> event = watch.next(patience)) {
            EXPECT_EQ(event->kind, BusEvent::Kind::Changed);
            if (event->camera.use == use) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(waitForUse(zrn::Use::Held));
    driver->close(serial);
    EXPECT_TRUE(waitForUse(zrn::Use::Free));
}

} // namespace
