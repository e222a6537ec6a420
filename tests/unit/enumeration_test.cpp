// The node table: finding, opening and closing cameras.

#include "driver_test.h"

#include <cstdlib>
#include <thread>

using fakeuvc::Camera;
using fakeuvc::Outstanding;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class Enumeration : public DriverTest
{
protected:
    /// Each opened camera leaves one descriptor with libuvc.
    void expectDescriptorLeaks(int count) { expectedLeaks.descriptors += count; }
};

} // namespace

TEST_F(Enumeration, InitialisingTheLibraryOnlyAnswersTrue)
{
    EXPECT_TRUE(CZRNCamera::initizlizeZRNCameraLibrary());
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Enumeration, AnEmptyBusYieldsAnEmptyTable)
{
    CameraProbe::m_enumCount = 3;
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_EQ(CameraProbe::m_enumCount, 0);
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_init", "uvc_get_device_list context1",
                            "uvc_free_device_list with references", "uvc_exit context1"));
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0")));
    EXPECT_EQ(bus.outstanding(), Outstanding{});
}

TEST_F(Enumeration, OpensACameraInAContextOfItsOwn)
{
    bus.addCamera(4711);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 1);
    expectDescriptorLeaks(1);

    EXPECT_THAT(
        bus.callTexts(),
        ElementsAre("uvc_init", "uvc_get_device_list context1",
                    "uvc_get_device_descriptor context1/device0", "uvc_init",
                    "uvc_get_device_list context2", "uvc_get_device_descriptor context2/device0",
                    "uvc_open context2/device0", "uvc_get_backlight_compensation handle1 GET_CUR",
                    "uvc_get_backlight_compensation handle1 GET_MAX",
                    "uvc_get_backlight_compensation handle1 GET_MIN",
                    "uvc_get_backlight_compensation handle1 GET_DEF",
                    "uvc_ref_device context2/device0", "uvc_free_device_list with references",
                    "uvc_free_device_descriptor", "uvc_free_device_list with references",
                    "uvc_exit context1"));

    const CameraNode* opened = node("4711");
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->serial, "4711");
    EXPECT_NE(opened->device, nullptr);
    EXPECT_NE(opened->handle, nullptr);
    EXPECT_NE(opened->context, nullptr);
    EXPECT_TRUE(opened->isOpen);
    EXPECT_EQ(CameraProbe::m_enumCount, 1);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0"),
                                         debugLine(" open device num: 0 ,handle: " +
                                                   addressText(opened->handle))));
    // One reference is libuvc's for the open handle, one the node's.
    EXPECT_EQ(bus.outstanding(),
              (Outstanding{.contexts = 1, .handles = 1, .deviceReferences = 2, .descriptors = 1}));
}

TEST_F(Enumeration, SkipsDevicesWithOtherIds)
{
    bus.addDevice(0x0483, 0x5751);
    bus.addDevice(0x0482, 0x5750);
    bus.addCamera(1);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 1);
    expectDescriptorLeaks(1);
    EXPECT_EQ(bus.count("uvc_open"), 1);
    EXPECT_THAT(bus.callTexts(), testing::Contains("uvc_open context2/device2"));
    EXPECT_THAT(log.lines(QtDebugMsg),
                testing::Contains(
                    debugLine(" open device num: 2 ,handle: " + addressText(node("1")->handle))));
}

TEST_F(Enumeration, SkipsUnreadableDescriptorsSilently)
{
    bus.addCamera(1).descriptorReadable = false;
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_EQ(bus.count("uvc_open"), 0);
    EXPECT_EQ(bus.count("uvc_free_device_descriptor"), 0);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0")));
}

TEST_F(Enumeration, SortsSerialsAsTexts)
{
    bus.addCamera(9);
    bus.addCamera(10);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 2);
    expectDescriptorLeaks(2);
    EXPECT_THAT(CameraProbe::m_cameraNodeMap.keys(), ElementsAre(QString("10"), QString("9")));
    EXPECT_NE(node("9")->context, node("10")->context);
    EXPECT_NE(node("9")->handle, node("10")->handle);
    EXPECT_TRUE(node("9")->isOpen);
    EXPECT_TRUE(node("10")->isOpen);
}

TEST_F(Enumeration, OpensTheSecondMatchByItsIndex)
{
    bus.addCamera(1);
    bus.addDevice(0x1d6b, 0x0002);
    bus.addCamera(2);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 2);
    expectDescriptorLeaks(2);
    std::vector<std::string> opened;
    for (const fakeuvc::Call& call : bus.calls()) {
        if (call.function == "uvc_open") {
            opened.push_back(call.text);
        }
    }
    EXPECT_THAT(opened, ElementsAre("uvc_open context2/device0", "uvc_open context3/device2"));
}

TEST_F(Enumeration, AFailedOpenReleasesListAndContext)
{
    bus.addCamera(1).openResult = UVC_ERROR_ACCESS;
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_EQ(CameraProbe::m_enumCount, 0);
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0"),
                                         debugLine(" open device num: 0  failed, errCode : -3")));
    EXPECT_EQ(bus.outstanding(), Outstanding{});
}

TEST_F(Enumeration, CountsOpenedDevicesNotDevicesSeen)
{
    // After a failure the index falls behind the device: the failing one is tried again.
    bus.addCamera(1);
    bus.addCamera(2).openResult = UVC_ERROR_BUSY;
    bus.addCamera(3);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 1);
    expectDescriptorLeaks(1);
    EXPECT_THAT(CameraProbe::m_cameraNodeMap.keys(), ElementsAre(QString("1")));
    std::vector<std::string> opened;
    for (const fakeuvc::Call& call : bus.calls()) {
        if (call.function == "uvc_open") {
            opened.push_back(call.text);
        }
    }
    EXPECT_THAT(opened, ElementsAre("uvc_open context2/device0", "uvc_open context3/device1",
                                    "uvc_open context4/device1"));
}

TEST_F(Enumeration, WithoutAScanContextTheTableStaysAsItWas)
{
    bus.addCamera(1);
    CZRNCamera::enumZRNCameraDevices();
    expectDescriptorLeaks(1);
    const CameraNode* before = node("1");
    clearLogs();

    bus.fail({"uvc_init", UVC_ERROR_NO_MEM});
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_EQ(CameraProbe::m_enumCount, 0);
    EXPECT_EQ(node("1"), before);
    EXPECT_NE(before->handle, nullptr);
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_init"));
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: -11")));
    EXPECT_TRUE(CameraProbe::m_cameraEnumLock.tryLock());
    CameraProbe::m_cameraEnumLock.unlock();
}

TEST_F(Enumeration, WithoutADeviceListTheCountStaysAndTheScanContextIsKept)
{
    bus.addCamera(1);
    CZRNCamera::enumZRNCameraDevices();
    expectDescriptorLeaks(1);
    clearLogs();

    bus.fail({"uvc_get_device_list", UVC_ERROR_IO});
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_EQ(CameraProbe::m_enumCount, 1);
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_init", "uvc_close handle1", "uvc_unref_device context2/device0",
                            "uvc_exit context2", "uvc_get_device_list context3"));
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0"),
                                         criticalLine("uvc_get_device_list failed error: -1")));
    EXPECT_TRUE(CameraProbe::m_cameraEnumLock.tryLock());
    CameraProbe::m_cameraEnumLock.unlock();
    EXPECT_EQ(bus.keptLibraryCount(), 1);
    expectedLeaks.contexts += 1;
}

TEST_F(Enumeration, ACameraWithoutAContextIsSkipped)
{
    bus.addCamera(1);
    bus.fail({"uvc_init", UVC_ERROR_OTHER, 2});
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0"),
                                         criticalLine("uvc_init failed error: -99")));
    EXPECT_EQ(bus.keptLibraryCount(), 0);
    EXPECT_EQ(bus.outstanding(), Outstanding{});
}

TEST_F(Enumeration, ACameraWithoutAListOfItsOwnKeepsItsContext)
{
    bus.addCamera(1);
    bus.fail({"uvc_get_device_list", UVC_ERROR_NO_MEM, 2});
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("uvc_init ret: 0"),
                                         criticalLine("uvc_get_device_list failed error: -11")));
    EXPECT_EQ(bus.keptLibraryCount(), 1);
    expectedLeaks.contexts += 1;
}

TEST_F(Enumeration, ASecondEnumerationClosesEveryCameraBeforeItScans)
{
    bus.addCamera(9);
    bus.addCamera(10);
    CZRNCamera::enumZRNCameraDevices();
    const NodeReference stale(node("9"));
    clearLogs();

    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 2);
    expectDescriptorLeaks(4);
    const std::vector<std::string> calls = bus.callTexts();
    ASSERT_GE(calls.size(), 8U);
    EXPECT_THAT(std::vector(calls.begin(), calls.begin() + 8),
                ElementsAre("uvc_init", "uvc_close handle2", "uvc_unref_device context3/device1",
                            "uvc_exit context3", "uvc_close handle1",
                            "uvc_unref_device context2/device0", "uvc_exit context2",
                            "uvc_get_device_list context4"));

    // For whoever still points at it, the old record stays, closed, and says that it was opened.
    EXPECT_NE(node("9"), stale.get());
    EXPECT_EQ(stale->handle, nullptr);
    EXPECT_EQ(stale->device, nullptr);
    EXPECT_EQ(stale->context, nullptr);
    EXPECT_TRUE(stale->isOpen);
    EXPECT_EQ(stale->serial, "9");
}

TEST_F(Enumeration, AVanishedCameraLeavesTheTable)
{
    bus.addCamera(1);
    CZRNCamera::enumZRNCameraDevices();
    expectDescriptorLeaks(1);
    bus.unplugAll();
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 0);
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    EXPECT_EQ(CameraProbe::m_enumCount, 0);
}

TEST_F(Enumeration, ADuplicateSerialReplacesTheEarlierHandles)
{
    bus.addCamera(5);
    bus.addCamera(5);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 2);
    EXPECT_EQ(CameraProbe::m_enumCount, 2);
    ASSERT_EQ(CameraProbe::m_cameraNodeMap.size(), 1);

    clearLogs();
    unsigned int value = 0;
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR5")), 0U);
    clearLogs();
    camera.getExposureTime(value, 0);
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_brightness handle2 GET_CUR"));

    // Nobody closes what the first camera held.
    expectedLeaks = {.contexts = 1, .handles = 1, .deviceReferences = 2, .descriptors = 2};
}

// libuvc's threads go on for a handle that nobody closes.
TEST_F(Enumeration, TheLibraryStaysLoadedOnlyForAHandleThatIsReplaced)
{
    bus.addCamera(4);
    bus.addCamera(5);
    CZRNCamera::enumZRNCameraDevices();
    CZRNCamera::enumZRNCameraDevices();
    EXPECT_EQ(bus.keptLibraryCount(), 0);

    bus.addCamera(5);
    CZRNCamera::enumZRNCameraDevices();
    EXPECT_EQ(bus.keptLibraryCount(), 1);
    expectedLeaks = {.contexts = 1, .handles = 1, .deviceReferences = 2, .descriptors = 7};
}

TEST_F(Enumeration, SaysOnceThatGuardsAreMissing)
{
    const auto enumerateTwice = [this] {
        bus.setGuardFault("a cause");
        CZRNCamera::enumZRNCameraDevices();
        CZRNCamera::enumZRNCameraDevices();
        const bool saysOnce = testing::Matches(
            ElementsAre(debugLine("uvc_init ret: 0"),
                        criticalLine(" libuvc's faults are not guarded against: a cause"),
                        debugLine("uvc_init ret: 0")))(log.lines());
        std::_Exit(saysOnce ? EXIT_SUCCESS : EXIT_FAILURE);
    };
    // Once for each process: another test may have made it say so.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(enumerateTwice(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(Enumeration, EveryLibraryCallIsMadeUnderTheEnumerationLock)
{
    bus.addCamera(1);
    bus.setHook([](const fakeuvc::Call& call) {
        const bool free = CameraProbe::m_cameraEnumLock.tryLock();
        if (free) {
            CameraProbe::m_cameraEnumLock.unlock();
        }
        EXPECT_FALSE(free) << call.text;
    });
    CZRNCamera::enumZRNCameraDevices();
    expectDescriptorLeaks(1);
}

TEST_F(Enumeration, TwoThreadsMayEnumerate)
{
    bus.addCamera(1);
    bus.addCamera(2);
    std::thread other([] { CZRNCamera::enumZRNCameraDevices(); });
    CZRNCamera::enumZRNCameraDevices();
    other.join();
    expectDescriptorLeaks(4);
    EXPECT_EQ(CameraProbe::m_enumCount, 2);
    EXPECT_EQ(CameraProbe::m_cameraNodeMap.size(), 2);
    EXPECT_EQ(bus.outstanding().handles, 2);
}

TEST_F(Enumeration, ReleasingClosesEveryNodeInKeyOrder)
{
    bus.addCamera(9);
    bus.addCamera(10);
    CZRNCamera::enumZRNCameraDevices();
    expectDescriptorLeaks(2);
    clearLogs();

    bus.setHook([](const fakeuvc::Call& call) {
        const bool free = CameraProbe::m_cameraEnumLock.tryLock();
        EXPECT_TRUE(free) << call.text;
        if (free) {
            CameraProbe::m_cameraEnumLock.unlock();
        }
    });
    EXPECT_TRUE(CZRNCamera::releaseZRNCameraLibrary());
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_close handle2", "uvc_unref_device context3/device1",
                            "uvc_exit context3", "uvc_close handle1",
                            "uvc_unref_device context2/device0", "uvc_exit context2"));
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    EXPECT_EQ(CameraProbe::m_enumCount, 2);
    EXPECT_TRUE(CZRNCamera::releaseZRNCameraLibrary());
}

TEST_F(Enumeration, ReleasingSkipsNullNodes)
{
    CameraProbe::m_cameraNodeMap.insert("1", nullptr);
    EXPECT_TRUE(CZRNCamera::releaseZRNCameraLibrary());
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
}

TEST_F(Enumeration, ANullNodeInTheTableIsSkippedWhenClosingAndFilledWhenFound)
{
    bus.addCamera(1);
    CameraProbe::m_cameraNodeMap.insert("1", nullptr);
    EXPECT_EQ(CZRNCamera::enumZRNCameraDevices(), 1);
    expectDescriptorLeaks(1);
    ASSERT_NE(node("1"), nullptr);
    EXPECT_TRUE(node("1")->isOpen);
}

TEST_F(Enumeration, ClosingANodeTouchesOnlyWhatIsSet)
{
    CameraNode empty;
    empty.serial = "7";
    empty.isOpen = true;
    CZRNCamera::closeSpecifedDevice(&empty);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_TRUE(empty.isOpen);
    EXPECT_EQ(empty.serial, "7");

    bus.addCamera(1);
    CameraNode opened;
    ASSERT_TRUE(CZRNCamera::openSpecifedDevice(0x0483, 0x5750, 0, opened));
    expectDescriptorLeaks(1);
    opened.isOpen = true;
    clearLogs();
    CZRNCamera::closeSpecifedDevice(&opened);
    EXPECT_THAT(
        bus.callTexts(),
        ElementsAre("uvc_close handle1", "uvc_unref_device context1/device0", "uvc_exit context1"));
    EXPECT_EQ(opened.handle, nullptr);
    EXPECT_EQ(opened.device, nullptr);
    EXPECT_EQ(opened.context, nullptr);
    EXPECT_TRUE(opened.isOpen);
    EXPECT_EQ(opened.serial, "1");
}

TEST_F(Enumeration, OpensByAnyIdsAndIndex)
{
    bus.addDevice(0x1234, 0xabcd).setSerial(77);
    bus.addCamera(1);
    bus.addDevice(0x1234, 0xabcd).setSerial(88);

    CameraNode opened;
    EXPECT_TRUE(CZRNCamera::openSpecifedDevice(0x1234, 0xabcd, 1, opened));
    EXPECT_EQ(opened.serial, "88");
    EXPECT_FALSE(opened.isOpen);
    CZRNCamera::closeSpecifedDevice(&opened);
    expectDescriptorLeaks(1);
    clearLogs();

    CameraNode missing;
    EXPECT_FALSE(CZRNCamera::openSpecifedDevice(0x1234, 0xabcd, 2, missing));
    EXPECT_EQ(missing.handle, nullptr);
    EXPECT_EQ(missing.device, nullptr);
    EXPECT_EQ(missing.context, nullptr);
    EXPECT_EQ(bus.count("uvc_open"), 0);
    EXPECT_EQ(bus.count("uvc_free_device_descriptor"), 3);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Enumeration, ComposesTheSerialFromFourRequests)
{
    Camera& device = bus.addCamera(0);
    CameraNode opened;
    ASSERT_TRUE(CZRNCamera::openSpecifedDevice(0x0483, 0x5750, 0, opened));
    expectDescriptorLeaks(1);
    EXPECT_EQ(opened.serial, "0");

    device[fakeuvc::Control::BacklightCompensation] = {
        .current = 0x1111, .minimum = 0x2222, .maximum = 0x3333, .preset = 0x4444, .nextReads = {}};
    EXPECT_EQ(CZRNCamera::readSerial(opened.handle), QString::number(0x4444333322221111ULL));

    device.setSerial(0xffffffffffffffffULL);
    EXPECT_EQ(CZRNCamera::readSerial(opened.handle), "18446744073709551615");

    // A word that cannot be read counts as 0.
    bus.fail({.function = "uvc_get_backlight_compensation", .request = UVC_GET_MIN});
    EXPECT_EQ(CZRNCamera::readSerial(opened.handle), QString::number(0xffffffff0000ffffULL));
    bus.fail({.function = "uvc_get_backlight_compensation"});
    EXPECT_EQ(CZRNCamera::readSerial(opened.handle), "0");
    CZRNCamera::closeSpecifedDevice(&opened);
}
