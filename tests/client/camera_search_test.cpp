// Finding the camera that the user wants, on a bus that is made of files.

#include "client/camera_search.h"
#include "factory_interface.h"
#include "made_up_system.h"

#include <QStringList>
#include <QVariantMap>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <unistd.h>

using testing::HasSubstr;
using testing::StartsWith;
using zrn::CameraChoice;
using zrn::Error;

namespace
{

/// A factory that can open chosen devices, and gives the serials that a test has laid out.
class ListedFactory : public IFactory
{
public:
    struct Device {
        std::vector<QString> readings; ///< what its next openings read; the last one stays
        int openings = 0;
        bool isOpen = false;
    };

    ListedFactory() { setProperty(deviceSerialsProperty, QVariantMap()); }

    QString name() override { return {}; }
    QVersionNumber version() override { return {}; }
    int enumDevice() override
    {
        QVariantMap serials;
        const QStringList chosen = property(devicesProperty).toStringList();
        for (auto& [place, device] : devices) {
            if (chosen.contains('-' + place)) {
                device.isOpen = false;
            } else if (chosen.contains(place)) {
                device.isOpen = true;
                ++device.openings;
                if (device.openings > 1 && device.readings.size() > 1) {
                    device.readings.erase(device.readings.begin());
                }
            }
            if (device.isOpen) {
                serials[place] = device.readings.front();
            }
        }
        setProperty(deviceSerialsProperty, serials);
        return static_cast<int>(serials.size());
    }
    BaseDeviceSpace::DeviceInterface* createDevice() override
    {
        ADD_FAILURE() << "looking for a camera sends it nothing";
        return nullptr;
    }
    ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*&) override
    {
        return ErrorCode::NothingEnumerated;
    }

    std::map<QString, Device> devices; ///< by place
};

class CameraSearchTest : public testing::Test
{
protected:
    CameraSearchTest()
    {
        system.plug("1-1", 1);
        system.plug("1-2", 2);
        factory->devices["001/001"].readings = {"ZR1"};
        factory->devices["001/002"].readings = {"ZR2"};
    }

    void makeKnown(const std::string& port, const std::string& serial)
    {
        for (const zrn::BusCamera& camera : bus.cameras()) {
            if (camera.port == port) {
                bus.remember(camera, serial);
            }
        }
    }
    std::string serialAt(std::size_t index) const { return bus.cameras().at(index).serial; }
    std::string find(const CameraChoice& choice) { return search.find(choice, {}).serial; }
    std::string failureOf(const CameraChoice& choice)
    {
        try {
            find(choice);
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), Error::Kind::NoCamera);
            EXPECT_THAT(error.remedy(), Not(HasSubstr("zrncam"))) << "not every program is this";
            return std::string(error.what()) + '\n' + error.remedy();
        }
        return {};
    }

    MadeUpSystem system;
    zrn::Bus bus{system.root(), zrn::SerialCache({})};
    std::shared_ptr<ListedFactory> factory = std::make_shared<ListedFactory>();
    zrn::Driver driver{factory,
                       {[this] { return bus.cameras(); },
                        [this] { return bus.camerasAndHolders(); },
                        [this](const zrn::BusCamera& camera, const std::string& serial) {
                            bus.remember(camera, serial);
                        }}};
    zrn::CameraSearch search{driver};
};

const CameraChoice any;

} // namespace

TEST_F(CameraSearchTest, OpensTheChosenCameraAlone)
{
    EXPECT_EQ(find({{}, "1-2", -1}), "ZR2");
    EXPECT_EQ(find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(factory->devices["001/001"].openings, 0);
    EXPECT_EQ(find({{}, {}, 0}), "ZR1");
}

TEST_F(CameraSearchTest, GivesBackWhatIsNotTheOne)
{
    EXPECT_EQ(find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(factory->devices["001/001"].openings, 1);
    EXPECT_FALSE(factory->devices["001/001"].isOpen);
    EXPECT_TRUE(factory->devices["001/002"].isOpen);
}

TEST_F(CameraSearchTest, ACameraThatMissedARequestIsAskedAgain)
{
    factory->devices["001/002"].readings = {"ZR0", "ZR2"};
    EXPECT_EQ(find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(serialAt(1), "ZR2");
}

TEST_F(CameraSearchTest, AWrongSerialThatIsRememberedIsCorrected)
{
    makeKnown("1-1", "ZR1");
    makeKnown("1-2", "ZR0");
    EXPECT_EQ(search.findNow({"ZR2", {}, -1}).serial, "ZR2");
    EXPECT_EQ(serialAt(1), "ZR2");
    EXPECT_FALSE(factory->devices["001/001"].isOpen);
}

TEST_F(CameraSearchTest, WhatNoCameraHasIsLookedForOnce)
{
    makeKnown("1-1", "ZR1");
    makeKnown("1-2", "ZR2");
    EXPECT_THAT(failureOf({"ZR3", {}, -1}), StartsWith("no camera has the serial ZR3"));
    EXPECT_THAT(failureOf({"ZR3", {}, -1}), StartsWith("no camera has the serial ZR3"));
    EXPECT_EQ(factory->devices["001/001"].openings, 1);
    EXPECT_EQ(factory->devices["001/002"].openings, 1);
    EXPECT_FALSE(factory->devices["001/001"].isOpen);
}

TEST_F(CameraSearchTest, KnownCamerasAreAskedAgainWhenOthersHadTheirTimeToLook)
{
    makeKnown("1-1", "ZR1");
    system.bind("1-2", 0, "usbfs");
    system.run(31, "host", "/dev/bus/usb/001/002");
    EXPECT_THROW(search.findNow({"ZR2", {}, -1}), Error);
    EXPECT_THROW(search.findNow({"ZR2", {}, -1}), Error);
    EXPECT_EQ(factory->devices["001/001"].openings, 0);
    failureOf({"ZR2", {}, -1});
    EXPECT_EQ(factory->devices["001/001"].openings, 1);
    EXPECT_FALSE(factory->devices["001/001"].isOpen);
}

TEST_F(CameraSearchTest, AWatchedCameraIsLeftToItsViewer)
{
    system.bind("1-1", 0, "uvcvideo");
    system.write("/sys/bus/usb/devices/1-1:1.0/video4linux/video3/name", "camera\n");
    system.write("/dev/video3", "");
    system.run(31, "webcam", "/dev/video3");
    EXPECT_EQ(find(any), "ZR2");
    EXPECT_EQ(search.freePorts({}), std::vector<std::string>{"1-2"});
    EXPECT_EQ(factory->devices["001/001"].openings, 0);
    EXPECT_EQ(failureOf({{}, "1-1", -1}),
              "the camera at port 1-1 is in use by webcam (pid 31)\n"
              "end that program, or wait until it is done with this camera");
}

TEST_F(CameraSearchTest, ACameraThatThisProgramHoldsIsNotSaidToBeAnothers)
{
    system.bind("1-1", 0, "usbfs");
    system.run(::getpid(), "host", "/dev/bus/usb/001/001");
    EXPECT_EQ(failureOf({{}, "1-1", -1}), "the camera at port 1-1 is open in this program already\n"
                                          "close it there first, or use the one that is open");
}

TEST_F(CameraSearchTest, ASearchCanBeEndedEarly)
{
    system.bind("1-1", 0, "usbfs");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(search.find({{}, "1-1", -1}, {std::chrono::hours(1), {}, stop.get_token()}),
                 zrn::Error);
}

TEST_F(CameraSearchTest, SeveralThatAreHeldAreNotFree)
{
    system.bind("1-1", 0, "usbfs");
    system.bind("1-2", 0, "usbfs");
    system.run(31, "host", "/dev/bus/usb/001/001");
    const std::string failure = failureOf(any);
    EXPECT_THAT(failure, StartsWith("none of the 2 cameras on the bus is free\n"));
    EXPECT_THAT(failure, HasSubstr("the camera at port 1-1 is in use by host (pid 31); "));
}

TEST_F(CameraSearchTest, SeveralThatMayNotBeOpenedComeWithTheRemedyOnce)
{
    zrn::BusCamera camera;
    camera.port = "1-1";
    camera.nodeExists = true;
    EXPECT_THAT(refusalOf(camera).remedy(), HasSubstr("udevadm"));

    // Nobody may open what is no device node, root neither.
    system.remove("/dev/bus/usb/001/001");
    system.remove("/dev/bus/usb/001/002");
    EXPECT_EQ(failureOf(any),
              "none of the 2 cameras on the bus can be opened\n"
              "the camera at port 1-1 has no device node /dev/bus/usb/001/001; "
              "the camera at port 1-2 has no device node /dev/bus/usb/001/002; "
              "in a container, pass /dev/bus/usb through; otherwise see whether udev runs");
}

TEST(CameraSearchEndTest, WhoeverLetsGoAtTheLastMomentIsNotTakenForAFault)
{
    MadeUpSystem system;
    system.plug("1-1", 1);
    const auto factory = std::make_shared<ListedFactory>();
    factory->devices["001/001"].readings = {"ZR1"};
    const zrn::Bus bus(system.root(), zrn::SerialCache({}));
    int looks = 0;
    const auto heldAtFirst = [&] {
        std::vector<zrn::BusCamera> cameras = bus.camerasAndHolders();
        cameras.front().use = looks++ == 0 ? zrn::Use::Held : zrn::Use::Free;
        return cameras;
    };
    zrn::Driver driver(factory, {heldAtFirst, heldAtFirst, [](const auto&, const auto&) {}});
    EXPECT_EQ(zrn::CameraSearch(driver).find(any, {std::chrono::milliseconds(-1), {}}).serial,
              "ZR1");
}
