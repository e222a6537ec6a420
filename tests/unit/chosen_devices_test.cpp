// Enumerating chosen cameras alone.

#include "driver_test.h"
#include "zrn_camera_factory.h"

#include <QFile>
#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <thread>

using fakeuvc::Outstanding;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace
{

class ChosenDevices : public DriverTest
{
protected:
    ChosenDevices()
    {
        first = &bus.addCamera(1);
        second = &bus.addCamera(2);
        clearLogs();
    }
    void TearDown() override
    {
        m_factory.reset();
        DriverTest::TearDown();
    }

    int choose(const QStringList& devices)
    {
        factory.setProperty("devices", devices);
        return factory.enumDevice();
    }
    static QString placeOf(const fakeuvc::Camera& device)
    {
        return QStringLiteral("001/%1").arg(device.address, 3, 10, QLatin1Char('0'));
    }
    QVariantMap serials() const { return factory.property("deviceSerials").toMap(); }
    std::vector<std::string> opened() const
    {
        std::vector<std::string> texts;
        for (const fakeuvc::Call& call : bus.calls()) {
            if (call.function == "uvc_open") {
                texts.push_back(call.text);
            }
        }
        return texts;
    }

    fakeuvc::Camera* first = nullptr;
    fakeuvc::Camera* second = nullptr;

private:
    std::unique_ptr<CZRNCameraFactory> m_factory = std::make_unique<CZRNCameraFactory>();

protected:
    CZRNCameraFactory& factory = *m_factory;
};

} // namespace

TEST_F(ChosenDevices, APlaceIsThreeDigitsTwice)
{
    EXPECT_EQ(busPlaceOf("001/002"), (BusPlace{1, 2}));
    EXPECT_EQ(busPlaceOf("255/127"), (BusPlace{255, 127}));
    EXPECT_EQ(nameOf({1, 20}), "001/020");
    for (const char* text :
         {"", "1/2", "001/0002", "0001/002", "001-002", "001/00x", "256/001", "001/256", "+01/002",
          " 01/002", "/dev/bus/usb/001/002", "001/002\n"}) {
        EXPECT_EQ(busPlaceOf(text), std::nullopt) << text;
    }
}

TEST_F(ChosenDevices, AHostCanTellThatTheFactoryKnowsThem)
{
    EXPECT_TRUE(factory.property("deviceSerials").isValid());
    EXPECT_THAT(serials(), IsEmpty());
    EXPECT_EQ(factory.metaObject()->indexOfProperty("devices"), -1);
    EXPECT_EQ(factory.metaObject()->propertyCount(), QObject::staticMetaObject.propertyCount());
}

TEST_F(ChosenDevices, AnEmptyListMeansEveryCamera)
{
    EXPECT_EQ(factory.enumDevice(), 2);
    const std::vector<std::string> plainly = bus.callTexts();
    EXPECT_THAT(plainly, Not(Contains(testing::HasSubstr("uvc_get_bus_number"))));
    CZRNCamera::releaseZRNCameraLibrary();
    const std::size_t logged = log.lines().size();

    bus.reset();
    first = &bus.addCamera(1);
    second = &bus.addCamera(2);
    clearLogs();
    EXPECT_EQ(choose({}), 2);
    EXPECT_THAT(bus.callTexts(), ElementsAreArray(plainly));
    EXPECT_EQ(log.lines().size(), logged);
    EXPECT_THAT(serials(), IsEmpty());
    expectedLeaks.descriptors += 2;
}

TEST_F(ChosenDevices, APlainEnumerationLeavesNoSerialsOfTheLastChoice)
{
    ASSERT_EQ(choose({"001/002"}), 1);
    ASSERT_EQ(serials().size(), 1);
    EXPECT_EQ(choose({}), 2);
    EXPECT_THAT(serials(), IsEmpty());
    expectedLeaks.descriptors += 2;
}

TEST_F(ChosenDevices, OpensTheChosenOneAlone)
{
    EXPECT_EQ(choose({"001/002"}), 1);
    EXPECT_THAT(
        bus.callTexts(),
        ElementsAre(
            "uvc_init", "uvc_get_device_list context1", "uvc_get_bus_number context1/device0",
            "uvc_get_device_address context1/device0", "uvc_get_bus_number context1/device1",
            "uvc_get_device_address context1/device1", "uvc_free_device_list with references",
            "uvc_exit context1", "uvc_init", "uvc_get_device_list context2",
            "uvc_get_bus_number context2/device0", "uvc_get_device_address context2/device0",
            "uvc_get_bus_number context2/device1", "uvc_get_device_address context2/device1",
            "uvc_get_device_descriptor context2/device1", "uvc_free_device_descriptor",
            "uvc_open context2/device1", "uvc_get_backlight_compensation handle1 GET_CUR",
            "uvc_get_backlight_compensation handle1 GET_MAX",
            "uvc_get_backlight_compensation handle1 GET_MIN",
            "uvc_get_backlight_compensation handle1 GET_DEF", "uvc_ref_device context2/device1",
            "uvc_free_device_list with references", "uvc_get_bus_number context2/device1",
            "uvc_get_device_address context2/device1"));
    EXPECT_EQ(CameraProbe::m_enumCount, 1);
    EXPECT_EQ(serials(), (QVariantMap{{"001/002", "ZR2"}}));
    ASSERT_NE(node("2"), nullptr);
    EXPECT_TRUE(node("2")->isOpen);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine(" open device num: 1 ,handle: " +
                                                   addressText(node("2")->handle))));
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 0U);
}

TEST_F(ChosenDevices, ABusyOneCostsOnlyItself)
{
    first->openResult = UVC_ERROR_BUSY;
    EXPECT_EQ(choose({"001/001", "001/002"}), 1);
    EXPECT_THAT(CameraProbe::m_cameraNodeMap.keys(), ElementsAre(QString("2")));
    EXPECT_THAT(log.lines(), Contains(debugLine(" open device num: 0  failed, errCode : -6")));
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR2")), 0U);
}

TEST_F(ChosenDevices, OtherOpenCamerasAreNotTouched)
{
    ASSERT_EQ(choose({"001/001"}), 1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    const CameraNode* before = node("1");
    clearLogs();

    EXPECT_EQ(choose({"001/002"}), 2);
    EXPECT_EQ(serials(), (QVariantMap{{"001/001", "ZR1"}, {"001/002", "ZR2"}}));
    EXPECT_EQ(node("1"), before);
    EXPECT_THAT(bus.callTexts(), Not(Contains(testing::HasSubstr("handle1"))));
    EXPECT_EQ(bus.count("uvc_close"), 0);
    EXPECT_TRUE(bus.stream(*first));

    CameraProbe other;
    EXPECT_EQ(code(other.connectDeviceBySerial("ZR2")), 0U);
    EXPECT_EQ(code(other.disconnectDevice()), 0U);
    EXPECT_TRUE(bus.stream(*first));
    camera.disconnectDevice();
}

TEST_F(ChosenDevices, AfterAPlainEnumerationTheOthersStayAsWell)
{
    enumerate();
    const CameraNode* before = node("1");
    EXPECT_EQ(choose({"001/002"}), 2);
    EXPECT_EQ(node("1"), before);
    EXPECT_NE(before->handle, nullptr);
    EXPECT_EQ(bus.count("uvc_close"), 1);
    EXPECT_THAT(opened(), ElementsAre("uvc_open context5/device1"));
}

TEST_F(ChosenDevices, AChosenOneThatIsOpenIsClosedFirst)
{
    ASSERT_EQ(choose({"001/001"}), 1);
    const NodeReference stale(node("1"));
    clearLogs();
    EXPECT_EQ(choose({"001/001"}), 1);
    EXPECT_EQ(stale->handle, nullptr);
    EXPECT_TRUE(stale->isOpen);
    EXPECT_NE(node("1"), stale.get());
    const std::vector<std::string> calls = bus.callTexts();
    const auto closed = std::find(calls.begin(), calls.end(), "uvc_close handle1");
    const auto reopened = std::find(calls.begin(), calls.end(), "uvc_open context4/device0");
    EXPECT_LT(closed, reopened);
    EXPECT_NE(reopened, calls.end());
}

TEST_F(ChosenDevices, WhatHasLeftTheBusIsForgotten)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    const NodeReference gone(node("1"));
    bus.unplug(*first);
    EXPECT_EQ(choose({"001/002"}), 1);
    EXPECT_EQ(gone->handle, nullptr);
    EXPECT_EQ(node("1"), nullptr);
    EXPECT_EQ(CameraProbe::m_enumCount, 1);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 769U);

    bus.unplug(*second);
    EXPECT_EQ(choose({"001/002"}), 0);
    EXPECT_THAT(serials(), IsEmpty());
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR2")), 776U);
}

TEST_F(ChosenDevices, AMinusClosesAlone)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    clearLogs();
    EXPECT_EQ(choose({"-001/002"}), 1);
    EXPECT_EQ(bus.count("uvc_close"), 1);
    EXPECT_THAT(opened(), IsEmpty());
    EXPECT_EQ(serials(), (QVariantMap{{"001/001", "ZR1"}}));
    EXPECT_TRUE(bus.stream(*first));
    EXPECT_THAT(log.lines(QtCriticalMsg), IsEmpty());

    EXPECT_EQ(choose({"-001/002", "001/002"}), 2);
    EXPECT_EQ(choose({"-001/001", "-001/002", "-001/099"}), 0);
    EXPECT_EQ(bus.outstanding(), Outstanding{});
    EXPECT_EQ(choose({"--001/001", "-"}), 0);
    EXPECT_EQ(log.lines(QtCriticalMsg).size(), 2U);
}

TEST_F(ChosenDevices, ClosingNeedsNoScan)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    bus.fail({"uvc_init", UVC_ERROR_NO_MEM});
    EXPECT_EQ(choose({"-001/001"}), 1);
    EXPECT_EQ(bus.outstanding().handles, 1);
    bus.clearFailures();
}

TEST_F(ChosenDevices, WhatTheKernelStillHasHasNotLeft)
{
    const QTemporaryDir folder;
    const QByteArray path = folder.path().toLocal8Bit();
    CameraProbe::m_kernelDeviceFolder = path.constData();
    QFile entry(folder.filePath("189:0"));
    ASSERT_TRUE(entry.open(QIODevice::WriteOnly));

    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    // The list is short of both.
    bus.unplug(*first);
    bus.unplug(*second);
    clearLogs();
    EXPECT_EQ(choose({"001/009"}), 1);
    EXPECT_EQ(serials(), (QVariantMap{{"001/001", "ZR1"}}));
    ASSERT_NE(node("1"), nullptr);
    EXPECT_NE(node("1")->handle, nullptr);
    EXPECT_EQ(bus.count("uvc_close"), 1);

    ASSERT_TRUE(entry.remove());
    EXPECT_EQ(choose({"001/009"}), 0);
    EXPECT_EQ(bus.count("uvc_close"), 2);
}

TEST_F(ChosenDevices, ADisconnectedCameraIsForgottenUntilItIsChosen)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    camera.disconnectDevice();
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 771U);
    EXPECT_EQ(choose({"001/002"}), 1);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 769U);
    EXPECT_EQ(choose({"001/001"}), 2);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
}

TEST_F(ChosenDevices, ALostCameraIsFoundAtItsNewPlace)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    bus.replug(*first);
    EXPECT_EQ(placeOf(*first), "001/003");
    EXPECT_EQ(choose({"001/003"}), 2);
    EXPECT_EQ(serials(), (QVariantMap{{"001/002", "ZR2"}, {"001/003", "ZR1"}}));
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
}

TEST_F(ChosenDevices, MalformedPlacesAreSaidAndIgnored)
{
    EXPECT_EQ(choose({"1/2", "001/002"}), 1);
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine(" not a place on the bus: \"1/2\"")));
    clearLogs();

    // Nothing else is opened or closed for it.
    EXPECT_EQ(choose({"nonsense"}), 1);
    EXPECT_EQ(bus.count("uvc_open"), 0);
    EXPECT_EQ(bus.count("uvc_close"), 0);
    EXPECT_EQ(log.lines(QtCriticalMsg).size(), 1U);
}

TEST_F(ChosenDevices, APlaceIsNamedOnceOrTwice)
{
    EXPECT_EQ(choose({"001/002", "001/002"}), 1);
    EXPECT_EQ(opened().size(), 1U);
}

TEST_F(ChosenDevices, OtherDevicesAndEmptyPlacesAreNotOpened)
{
    bus.addDevice(0x1d6b, 2);
    EXPECT_EQ(choose({"001/003", "001/099", "002/001"}), 0);
    EXPECT_THAT(opened(), IsEmpty());
    EXPECT_EQ(bus.outstanding(), Outstanding{});
}

TEST_F(ChosenDevices, OtherDevicesAreNotEvenAskedForTheirDescriptors)
{
    choose({"001/002"});
    EXPECT_EQ(bus.count("uvc_get_device_descriptor"), 1);
}

TEST_F(ChosenDevices, AnUnreadableDescriptorCostsOnlyItsCamera)
{
    first->descriptorReadable = false;
    EXPECT_EQ(choose({"001/001", "001/002"}), 1);
    EXPECT_THAT(CameraProbe::m_cameraNodeMap.keys(), ElementsAre(QString("2")));
}

TEST_F(ChosenDevices, ASerialInUseIsLeftToTheCameraThatHasIt)
{
    fakeuvc::Camera& twin = bus.addCamera(1);
    ASSERT_EQ(choose({"001/001"}), 1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    clearLogs();
    EXPECT_EQ(choose({placeOf(twin), "001/002"}), 2);
    EXPECT_TRUE(bus.stream(*first));
    EXPECT_EQ(serials(), (QVariantMap{{"001/001", "ZR1"}, {"001/002", "ZR2"}}));
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine(
                    " another open camera has this serial: \"1\" , not opened: \"001/003\"")));
    EXPECT_EQ(bus.outstanding().handles, 2);
    camera.disconnectDevice();
}

TEST_F(ChosenDevices, OfTwoWithOneSerialTheFirstIsKept)
{
    const fakeuvc::Camera& twin = bus.addCamera(1);
    EXPECT_EQ(choose({"001/001", placeOf(twin)}), 1);
    EXPECT_EQ(serials(), (QVariantMap{{"001/001", "ZR1"}}));
    EXPECT_EQ(bus.outstanding().handles, 1);
}

TEST_F(ChosenDevices, ANodeThatIsClosedMeanwhileIsReplacedAndNotRevived)
{
    const fakeuvc::Camera& twin = bus.addCamera(1);
    ASSERT_EQ(choose({"001/001"}), 1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    const NodeReference stale(node("1"));
    bus.setHook([&](const fakeuvc::Call& call) {
        if (call.function == "uvc_open") {
            camera.disconnectDevice();
        }
    });
    EXPECT_EQ(choose({placeOf(twin)}), 1);
    bus.setHook({});
    EXPECT_EQ(stale->handle, nullptr);
    EXPECT_NE(node("1"), stale.get());
    EXPECT_EQ(serials(), (QVariantMap{{placeOf(twin), "ZR1"}}));
}

TEST_F(ChosenDevices, EveryFaultOfEveryCallCostsNoOtherCamera)
{
    struct Fault {
        const char* function;
        int nth;
        int expectedCount;
    };
    // The calls of one chosen camera, beside one that is open.
    for (const Fault& fault : {Fault{"uvc_init", 1, 1},
                               {"uvc_init", 2, 1},
                               {"uvc_get_device_list", 1, 1},
                               {"uvc_get_device_list", 2, 1},
                               {"uvc_get_device_descriptor", 1, 1},
                               {"uvc_open", 1, 1},
                               {"uvc_get_backlight_compensation", 0, 2}}) {
        SCOPED_TRACE(std::string(fault.function) + " " + std::to_string(fault.nth));
        CZRNCamera::releaseZRNCameraLibrary();
        ASSERT_EQ(choose({"001/001"}), 1);
        CameraProbe streaming;
        ASSERT_EQ(code(streaming.connectDeviceBySerial("ZR1")), 0U);
        ASSERT_EQ(code(streaming.startStream(0)), 0U);
        clearLogs();

        bus.fail({fault.function, UVC_ERROR_IO, fault.nth});
        EXPECT_EQ(choose({"001/002"}), fault.expectedCount);
        bus.clearFailures();
        EXPECT_TRUE(bus.stream(*first));
        EXPECT_EQ(CameraProbe::m_enumCount, fault.expectedCount);
        EXPECT_EQ(serials().value("001/001"), "ZR1");
        EXPECT_EQ(bus.outstanding().lists, 0);
        EXPECT_EQ(bus.outstanding().contexts, fault.expectedCount);
        EXPECT_EQ(bus.outstanding().descriptors, 0);

        EXPECT_EQ(choose({"001/002"}), 2);
        EXPECT_TRUE(bus.stream(*first));
        streaming.disconnectDevice();
    }
}

TEST_F(ChosenDevices, WithoutAScanNothingIsClosed)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    clearLogs();
    bus.fail({"uvc_init", UVC_ERROR_NO_MEM});
    EXPECT_EQ(choose({"001/001"}), 2);
    EXPECT_THAT(bus.callTexts(), Contains("uvc_init"));
    EXPECT_EQ(bus.count("uvc_close"), 0);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine("uvc_init failed error: -11")));
}

TEST_F(ChosenDevices, EveryLibraryCallIsMadeUnderTheEnumerationLock)
{
    bus.setHook([](const fakeuvc::Call& call) {
        const bool free = CameraProbe::m_cameraEnumLock.tryLock();
        if (free) {
            CameraProbe::m_cameraEnumLock.unlock();
        }
        EXPECT_FALSE(free) << call.text;
    });
    choose({"001/001"});
    choose({"001/002", "001/001"});
    bus.setHook({});
}

TEST_F(ChosenDevices, OneCameraIsLostAndFoundWhileAnotherStreams)
{
    ASSERT_EQ(choose({"001/001", "001/002"}), 2);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    camera.setTriggerMode(CameraSpace::TriggerMode::Oldest, 0);
    camera.m_cacheFrameCount = 64;
    ASSERT_EQ(code(camera.startStream(0)), 0U);

    std::atomic<bool> isOver = false;
    std::atomic<int> sent = 0;
    std::atomic<int> grabbed = 0;
    std::thread wire([&] {
        std::vector<unsigned char> frame = frameOf(1280, 1024, 2);
        while (!isOver) {
            // As fast as they are grabbed, so that none is lost on this side.
            if (sent - grabbed < 8) {
                EXPECT_TRUE(bus.deliver(*first, 1280, 1024, frame));
                ++sent;
            }
            std::this_thread::yield();
        }
    });
    std::thread host([&] {
        QList<CameraSpace::ImageBlock*> images;
        ErrorCode result = ErrorCode::Success;
        while (result != ErrorCode::NotStreaming) {
            result = camera.grabImage(images);
            grabbed += result == ErrorCode::Success ? 1 : 0;
            qDeleteAll(images);
            images.clear();
        }
    });
    const auto isGrabbed = [&grabbed](int count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (grabbed < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        return grabbed >= count;
    };
    // Frames go on arriving while the other camera is lost.
    const auto awaitFrame = [&] { EXPECT_TRUE(isGrabbed(grabbed + 1)) << "no more frames"; };

    constexpr int losses = 20;
    CameraProbe lost;
    for (int loss = 0; loss < losses && !HasFailure(); ++loss) {
        EXPECT_EQ(code(lost.connectDeviceBySerial("ZR2")), 0U);
        EXPECT_EQ(code(lost.startStream(0)), 0U);
        bus.replug(*second);
        awaitFrame();
        lost.disconnectDevice();
        awaitFrame();
        EXPECT_EQ(choose({placeOf(*second)}), 2);
    }
    isOver = true;
    wire.join();
    EXPECT_TRUE(isGrabbed(sent));
    camera.disconnectDevice();
    host.join();
    EXPECT_EQ(grabbed, sent);
}

TEST_F(ChosenDevices, TwoFactoriesShareTheTable)
{
    CZRNCameraFactory other;
    ASSERT_EQ(choose({"001/001"}), 1);
    other.setProperty("devices", QStringList{"001/002"});
    EXPECT_EQ(other.enumDevice(), 2);
    EXPECT_EQ(other.property("deviceSerials").toMap().size(), 2);
    EXPECT_EQ(serials().size(), 1);
}
