// Finding the camera that the user wants, on a bus that is made of files.

#include "camera_search.h"
#include "made_up_system.h"

#include <QVariantMap>
#include <gtest/gtest.h>

#include <chrono>
#include <map>

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
        return serials.size();
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
        factory.devices["001/001"].readings = {"ZR1"};
        factory.devices["001/002"].readings = {"ZR2"};
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
    QString failureOf(const CameraChoice& choice)
    {
        try {
            search.find(choice);
        } catch (const ToolError& error) {
            EXPECT_EQ(error.exitCode(), ExitCode::NoCamera);
            return QString::fromUtf8(error.what()) + '\n' + error.hint();
        }
        return {};
    }

    MadeUpSystem system;
    zrn::Bus bus{system.root(), zrn::SerialCache({})};
    ListedFactory factory;
    zrnhost::DeviceOpener opener{factory, [this] { return bus.camerasAndHolders(); }};
    CameraSearch search{bus, opener, true};
};

const CameraChoice any;

} // namespace

TEST_F(CameraSearchTest, OpensTheChosenCameraAlone)
{
    EXPECT_EQ(search.find({{}, "1-2", -1}), "ZR2");
    EXPECT_EQ(search.find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(factory.devices["001/001"].openings, 0);
    EXPECT_EQ(search.find({{}, {}, 0}), "ZR1");
}

TEST_F(CameraSearchTest, GivesBackWhatIsNotTheOne)
{
    EXPECT_EQ(search.find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(factory.devices["001/001"].openings, 1);
    EXPECT_FALSE(factory.devices["001/001"].isOpen);
    EXPECT_TRUE(factory.devices["001/002"].isOpen);
}

TEST_F(CameraSearchTest, ACameraThatMissedARequestIsAskedAgain)
{
    factory.devices["001/002"].readings = {"ZR0", "ZR2"};
    EXPECT_EQ(search.find({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(serialAt(1), "ZR2");
}

TEST_F(CameraSearchTest, AWrongSerialThatIsRememberedIsCorrected)
{
    makeKnown("1-1", "ZR1");
    makeKnown("1-2", "ZR0");
    EXPECT_EQ(search.findNow({"ZR2", {}, -1}), "ZR2");
    EXPECT_EQ(serialAt(1), "ZR2");
    EXPECT_FALSE(factory.devices["001/001"].isOpen);
}

TEST_F(CameraSearchTest, WhatNoCameraHasIsLookedForOnce)
{
    makeKnown("1-1", "ZR1");
    makeKnown("1-2", "ZR2");
    EXPECT_TRUE(failureOf({"ZR3", {}, -1}).startsWith("no camera has the serial ZR3"));
    EXPECT_TRUE(failureOf({"ZR3", {}, -1}).startsWith("no camera has the serial ZR3"));
    EXPECT_EQ(factory.devices["001/001"].openings, 1);
    EXPECT_EQ(factory.devices["001/002"].openings, 1);
    EXPECT_FALSE(factory.devices["001/001"].isOpen);
}

TEST_F(CameraSearchTest, AWatchedCameraIsLeftToItsViewer)
{
    system.bind("1-1", 0, "uvcvideo");
    system.write("/sys/bus/usb/devices/1-1:1.0/video4linux/video3/name", "camera\n");
    system.write("/dev/video3", "");
    system.run(31, "webcam", "/dev/video3");
    EXPECT_EQ(search.find(any), "ZR2");
    EXPECT_EQ(search.freePorts(), std::vector<std::string>{"1-2"});
    EXPECT_EQ(factory.devices["001/001"].openings, 0);
    EXPECT_EQ(failureOf({{}, "1-1", -1}),
              "the camera at port 1-1 is in use by webcam (pid 31)\n"
              "end that program, or wait until it is done with this camera");
}

TEST_F(CameraSearchTest, SeveralThatAreHeldAreNotFree)
{
    system.bind("1-1", 0, "usbfs");
    system.bind("1-2", 0, "usbfs");
    system.run(31, "host", "/dev/bus/usb/001/001");
    const QString failure = failureOf(any);
    EXPECT_TRUE(failure.startsWith("none of the 2 cameras on the bus is free\n"));
    EXPECT_TRUE(failure.contains("the camera at port 1-1 is in use by host (pid 31); "));
}

TEST_F(CameraSearchTest, SeveralThatMayNotBeOpenedComeWithTheRemedyOnce)
{
    zrn::BusCamera camera;
    camera.port = "1-1";
    camera.nodeExists = true;
    const QString remedy = refusalOf(camera).hint();
    EXPECT_TRUE(remedy.contains("udevadm"));

    // Nobody may open what is no device node, root neither.
    system.remove("/dev/bus/usb/001/001");
    system.remove("/dev/bus/usb/001/002");
    const QString failure = failureOf(any);
    EXPECT_EQ(failure,
              "none of the 2 cameras on the bus can be opened\n"
              "the camera at port 1-1 has no device node /dev/bus/usb/001/001; "
              "the camera at port 1-2 has no device node /dev/bus/usb/001/002; "
              "in a container, pass /dev/bus/usb through; otherwise see whether udev runs");
}
