// Connecting a camera object to an enumerated camera, and what it reads on the way.

#include "client/property_keys.h"
#include "driver_test.h"
#include "sensor_numbers.h"
#include "stdout_capture.h"
#include "virtual_clock.h"
#include "watched_thread.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <thread>

using fakeuvc::Camera;
using fakeuvc::Control;
using fakeuvc::Format;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class Connection : public DriverTest
{
protected:
    /// Plugs in and enumerates one camera.
    Camera& enumerated(std::uint64_t serial, int sensorType = 2, int width = 8, int height = 4)
    {
        Camera& device = bus.addCamera(serial, sensorType, width, height);
        enumerate();
        return device;
    }
    void expectUntouched() const
    {
        EXPECT_EQ(camera.m_currentNode, nullptr);
        EXPECT_EQ(camera.m_imageWidth, 1280);
        EXPECT_EQ(camera.m_imageHeight, 1024);
        EXPECT_EQ(camera.m_serial, "");
        EXPECT_EQ(camera.m_sensorType, -1);
    }
};

const std::vector<std::string> initialisation = {
    "uvc_get_contrast handle1 GET_CUR",   "uvc_get_brightness handle1 GET_MAX",
    "uvc_get_brightness handle1 GET_MIN", "uvc_get_gain handle1 GET_MIN",
    "uvc_get_gain handle1 GET_MAX",       "uvc_get_gamma handle1 GET_CUR",
    "uvc_get_sharpness handle1 GET_CUR",  "uvc_get_hue handle1 GET_CUR",
    "uvc_get_saturation handle1 GET_CUR", "uvc_set_ae_mode handle1 1",
};

std::vector<std::string> connectionCalls()
{
    std::vector<std::string> calls = {"uvc_get_format_descs handle1"};
    calls.insert(calls.end(), initialisation.begin(), initialisation.end());
    return calls;
}

/// Notes the calls that must go through the virtual operations.
class OverridingCamera : public CameraProbe
{
public:
    ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                   signed char selector) override
    {
        calls.push_back("getExposureTimeRange " + std::to_string(selector));
        minimum = 111;
        maximum = 222;
        return ErrorCode::ExposureRangeFailed;
    }
    ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum,
                           signed char selector) override
    {
        calls.push_back("getGainRange " + std::to_string(selector));
        minimum = 3;
        maximum = 4;
        return ErrorCode::NoCamera;
    }
    ErrorCode getGain(unsigned short& /*value*/, signed char selector) override
    {
        calls.push_back("getGain " + std::to_string(selector));
        return gainResult;
    }
    ErrorCode stopStream(signed char selector) override
    {
        calls.push_back("stopStream " + std::to_string(selector));
        return CameraProbe::stopStream(selector);
    }

    std::vector<std::string> calls;
    ErrorCode gainResult = ErrorCode::Success;
};

} // namespace

TEST_F(Connection, PausesOnceBetweenTheLimitsOfTheExposure)
{
    enumerated(4711);
    VirtualClock& clock = VirtualClock::instance();
    clock.reset();
    std::string lastCall;
    clock.setHook([&](const VirtualClock::Sleep& /*sleep*/) { lastCall = bus.callTexts().back(); });
    const VirtualClock::Sleep pause = {std::this_thread::get_id(), std::chrono::milliseconds(32)};
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    EXPECT_THAT(clock.sleeps(), ElementsAre(pause));
    EXPECT_EQ(lastCall, "uvc_get_brightness handle1 GET_MAX");
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    EXPECT_THAT(clock.sleeps(), ElementsAre(pause, pause));
    clock.reset();
}

TEST_F(Connection, BySerialReadsGeometryAndInitialises)
{
    enumerated(4711, 3, 640, 480);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);

    EXPECT_EQ(bus.callTexts(), connectionCalls());
    EXPECT_THAT(log.lines(), ElementsAre(infoLine("bDescriptorSubtype: 4"),
                                         infoLine("\tw: 640 ,h: 480 ,defaultFrameInterval: 333333"),
                                         debugLine("m_sensorType:  3"),
                                         debugLine("MinExposure:1  maxExposure:5000\n")));
    EXPECT_EQ(camera.m_currentNode, node("4711"));
    EXPECT_EQ(camera.m_serial, "4711");
    EXPECT_EQ(camera.m_imageWidth, 640);
    EXPECT_EQ(camera.m_imageHeight, 480);
    EXPECT_EQ(camera.m_sensorType, 3);
    EXPECT_EQ(camera.m_pixelFormat, CameraSpace::PixelFormatType::Packed16);
    EXPECT_EQ(camera.m_minExposureTime, 1U);
    EXPECT_EQ(camera.m_maxExposureTime, 5000U);
    EXPECT_EQ(camera.m_minGain, 2);
    EXPECT_EQ(camera.m_maxGain, 200);
    EXPECT_EQ(camera.m_colorRGBGain, 0x281E140A);
}

TEST_F(Connection, ByIndexDoesTheSameAndPrintsTheIndex)
{
    enumerated(4711, 3, 640, 480);
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 0U);

    EXPECT_EQ(output.text(), "index:0  camCount:1 \n");
    EXPECT_EQ(bus.callTexts(), connectionCalls());
    EXPECT_THAT(log.lines(),
                ElementsAre(debugLine("get handle: " + addressText(node("4711")->handle)),
                            infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 640 ,h: 480 ,defaultFrameInterval: 333333"),
                            debugLine("m_sensorType:  3"),
                            debugLine("MinExposure:1  maxExposure:5000\n")));
    EXPECT_EQ(camera.m_currentNode, node("4711"));
    EXPECT_EQ(camera.m_serial, "4711");
    EXPECT_EQ(camera.m_imageWidth, 640);
    EXPECT_EQ(camera.m_imageHeight, 480);
}

TEST_F(Connection, IndexesFollowTheSerialsAsTexts)
{
    bus.addCamera(9);
    bus.addCamera(10);
    enumerate();
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 0U);
    EXPECT_EQ(camera.m_serial, "10");
    CameraProbe second;
    EXPECT_EQ(code(second.connectDeviceByIndex(1)), 0U);
    EXPECT_EQ(second.m_serial, "9");
}

TEST_F(Connection, LogsEveryFormatAndFrame)
{
    Camera& device = enumerated(1);
    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{8, 4, 400000}, {16, 8, 500000}}},
                      {UVC_VS_FORMAT_MJPEG, {{32, 16, 600000}}},
                      {UVC_VS_FORMAT_FRAME_BASED, {}}};
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_THAT(log.lines(QtInfoMsg),
                ElementsAre(infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 400000"),
                            infoLine("\tw: 16 ,h: 8 ,defaultFrameInterval: 500000"),
                            infoLine("bDescriptorSubtype: 6"),
                            infoLine("\tw: 32 ,h: 16 ,defaultFrameInterval: 600000"),
                            infoLine("bDescriptorSubtype: 16")));
    EXPECT_EQ(camera.m_imageWidth, 8);
}

TEST_F(Connection, TakesTheFirstFrameOfTheFirstFormatWhateverItsKind)
{
    Camera& device = enumerated(1);
    device.formats = {{UVC_VS_FORMAT_MJPEG, {{320, 240}}}, {UVC_VS_FORMAT_UNCOMPRESSED, {{8, 4}}}};
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(camera.m_imageWidth, 320);
    EXPECT_EQ(camera.m_imageHeight, 240);
}

TEST_F(Connection, NothingEnumeratedComesBeforeEveryArgumentCheck)
{
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceBySerial("")), 776U);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 776U);
    EXPECT_EQ(code(camera.connectDeviceByIndex(-1)), 776U);
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 776U);
    EXPECT_EQ(output.text(), "");
    EXPECT_THAT(log.lines(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, RefusesSerialsThatAreNotEnumerated)
{
    enumerated(4711);
    EXPECT_EQ(code(camera.connectDeviceBySerial("")), 780U);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR")), 769U);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4712")), 769U);
    EXPECT_EQ(code(camera.connectDeviceBySerial("4711")), 769U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, AcceptsAnyPrefixOfTwoCharacters)
{
    enumerated(4711);
    EXPECT_EQ(code(camera.connectDeviceBySerial("xy4711")), 0U);
    EXPECT_EQ(camera.m_serial, "4711");
}

TEST_F(Connection, ASerialOfOneCharacterIsTheWholeKey)
{
    enumerated(7);
    EXPECT_EQ(code(camera.connectDeviceBySerial("7")), 0U);
    EXPECT_EQ(camera.m_serial, "7");
}

TEST_F(Connection, ASecondConnectionIsRefusedBeforeAnythingElse)
{
    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    const CameraNode* connected = camera.m_currentNode;
    clearLogs();
    CameraProbe::m_enumCount = 0;
    EXPECT_EQ(code(camera.connectDeviceBySerial("")), 772U);
    EXPECT_EQ(code(camera.connectDeviceByIndex(-1)), 772U);
    EXPECT_EQ(camera.m_currentNode, connected);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Connection, ANullNodeIsNotOpen)
{
    enumerated(4711);
    CameraProbe::m_cameraNodeMap.insert("1", nullptr);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 771U);
    EXPECT_THAT(log.lines(), ElementsAre(infoLine("CameraNode is nullptr")));
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 770U);
    expectUntouched();
}

TEST_F(Connection, AClosedNodeIsNotOpen)
{
    enumerated(4711);
    node("4711")->isOpen = false;
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 771U);
    EXPECT_THAT(log.lines(), ElementsAre(infoLine("CameraNode not openned")));
    clearLogs();
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 771U);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, RefusesIndexesOutOfRange)
{
    enumerated(4711);
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(-1)), 780U);
    EXPECT_EQ(code(camera.connectDeviceByIndex(1)), 780U);
    EXPECT_EQ(output.text(), "index:-1  camCount:1 \nindex:1  camCount:1 \n");
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, AnIndexWithoutANodeIsNotFound)
{
    bus.addCamera(5);
    bus.addCamera(5);
    EXPECT_EQ(enumerate(), 2);
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(1)), 770U);
    CameraProbe::m_cameraNodeMap.value("5")->isOpen = false;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 771U);
    expectUntouched();
    expectedLeaks.contexts += 1;
    expectedLeaks.handles += 1;
    expectedLeaks.deviceReferences += 2;
}

TEST_F(Connection, ACameraWithoutFormatsIsRefused)
{
    enumerated(1).formats.clear();
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 1047U);
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 1047U);
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_get_format_descs handle1", "uvc_get_format_descs handle1"));
    EXPECT_THAT(log.lines(QtInfoMsg), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, ACameraWhoseFirstFormatHasNoFramesIsRefused)
{
    enumerated(1).formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {}},
                             {UVC_VS_FORMAT_UNCOMPRESSED, {{8, 4}}}};
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 1047U);
    EXPECT_THAT(log.lines(),
                ElementsAre(infoLine("bDescriptorSubtype: 4"), infoLine("bDescriptorSubtype: 4"),
                            infoLine("\tw: 8 ,h: 4 ,defaultFrameInterval: 333333")));
    expectUntouched();
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 1047U);
    expectUntouched();
}

TEST_F(Connection, ACameraThatWasClosedMeanwhileIsRefusedWithoutACall)
{
    enumerated(1);
    CZRNCamera::closeSpecifedDevice(node("1"));
    clearLogs();
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 1047U);
    const StdoutCapture output;
    EXPECT_EQ(code(camera.connectDeviceByIndex(0)), 1047U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, TwoObjectsMayShareACamera)
{
    enumerated(1);
    CameraProbe second;
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(code(second.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(camera.m_currentNode, second.m_currentNode);
}

TEST_F(Connection, TheDoubleSensorsAreKnownByTheirSize)
{
    struct Case {
        int width, height, streamedWidth, streamedHeight;
        unsigned format;
    };
    for (const Case& c : {Case{1308, 1991, 2616, 1991, 264}, Case{640, 960, 1280, 1024, 520}}) {
        CameraProbe probe;
        connect(probe, 2, c.width, c.height);
        EXPECT_EQ(probe.m_imageWidth, c.streamedWidth);
        EXPECT_EQ(probe.m_imageHeight, c.streamedHeight);
        EXPECT_EQ(static_cast<unsigned>(probe.m_pixelFormat), c.format);
        EXPECT_EQ(probe.m_sensorType, 5);
        // Limits in steps of 22.22 us.
        EXPECT_EQ(probe.m_minExposureTime, 22U);
        EXPECT_EQ(probe.m_maxExposureTime, 111100U);
        bus.unplugAll();
    }
}

TEST_F(Connection, ADoubleSensorIsNotAskedForItsType)
{
    enumerated(1, 3, 1308, 1991);
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(bus.count("uvc_get_contrast"), 0);
    EXPECT_THAT(log.lines(QtDebugMsg), Contains(debugLine("m_sensorType:  5")));
}

TEST_F(Connection, ASizeNextToADoubleSensorsIsAnOrdinaryOne)
{
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {1308, 1990}, {1307, 1991}, {640, 961}, {641, 960}, {960, 640}, {1280, 1024}}) {
        CameraProbe probe;
        connect(probe, 7, width, height);
        EXPECT_EQ(probe.m_imageWidth, width);
        EXPECT_EQ(probe.m_imageHeight, height);
        EXPECT_EQ(static_cast<unsigned>(probe.m_pixelFormat), 272U);
        EXPECT_EQ(probe.m_sensorType, 7);
        bus.unplugAll();
    }
}

TEST_F(Connection, UnknownSensorTypesBecomeTypeZero)
{
    Camera& device = enumerated(1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    const auto typeFor = [&](int contrast) {
        device[Control::Contrast].current = contrast;
        EXPECT_TRUE(camera.initializeCamera());
        return camera.m_sensorType;
    };
    for (const SensorType& type : sensorTypes) {
        EXPECT_EQ(typeFor(type.number), type.number);
    }
    for (const int contrast : unknownSensors) {
        if (contrast >= 0 && contrast <= std::numeric_limits<std::uint16_t>::max()) {
            EXPECT_EQ(typeFor(contrast), 0) << contrast;
        }
    }
}

TEST_F(Connection, ATypeThatCannotBeReadIsLoggedAndTakenAsZero)
{
    enumerated(1, 6);
    bus.fail({"uvc_get_contrast", UVC_ERROR_PIPE});
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(camera.m_sensorType, 0);
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine("uvc_get_contrast failed ret: -9")));
    // The limits are in steps of 100 us then.
    EXPECT_EQ(camera.m_minExposureTime, 100U);
    EXPECT_EQ(camera.m_maxExposureTime, 500000U);
}

TEST_F(Connection, FailuresWhileInitialisingAreNotChecked)
{
    enumerated(1, 2);
    for (const char* function :
         {"uvc_get_brightness", "uvc_get_gain", "uvc_get_gamma", "uvc_get_sharpness", "uvc_get_hue",
          "uvc_get_saturation", "uvc_set_ae_mode"}) {
        bus.fail({function, UVC_ERROR_IO});
    }
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_EQ(camera.m_minExposureTime, 1000U);
    EXPECT_EQ(camera.m_maxExposureTime, 0U);
    EXPECT_EQ(camera.m_minGain, 1);
    EXPECT_EQ(camera.m_maxGain, 255);
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine(" uvc_get_exposure_abs get max failed ret: -1")));
    // Without the first of its controls the colour word is not read at all.
    EXPECT_EQ(bus.count("uvc_get_sharpness"), 0);
    EXPECT_EQ(bus.count("uvc_set_ae_mode"), 1);
}

TEST_F(Connection, InitialisesThroughTheVirtualOperations)
{
    enumerated(1);
    OverridingCamera overriding;
    EXPECT_EQ(code(overriding.connectDeviceBySerial("ZR1")), 0U);
    EXPECT_THAT(overriding.calls, ElementsAre("getExposureTimeRange 0", "getGainRange 0"));
    EXPECT_EQ(overriding.m_minExposureTime, 111U);
    EXPECT_EQ(overriding.m_maxExposureTime, 222U);
    EXPECT_EQ(overriding.m_minGain, 3);
    EXPECT_EQ(overriding.m_maxGain, 4);
    EXPECT_THAT(log.lines(QtDebugMsg), Contains(debugLine("MinExposure:111  maxExposure:222\n")));
}

TEST_F(Connection, InitialisingWithoutACameraAnswersFalse)
{
    EXPECT_FALSE(camera.initializeCamera());
    EXPECT_THAT(log.lines(), IsEmpty());
    expectUntouched();
}

TEST_F(Connection, ReconnectingReadsEverythingAnew)
{
    Camera& device = enumerated(1, 2, 8, 4);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    clearLogs();

    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{16, 12}}}};
    device[Control::Contrast].current = 15;
    device[Control::Gain].maximum = 99;
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    EXPECT_EQ(bus.callTexts(), connectionCalls());
    EXPECT_THAT(log.lines(), ElementsAre(infoLine("bDescriptorSubtype: 4"),
                                         infoLine("\tw: 16 ,h: 12 ,defaultFrameInterval: 333333"),
                                         debugLine("m_sensorType:  15"),
                                         debugLine("MinExposure:100  maxExposure:500000\n")));
    EXPECT_EQ(camera.m_imageWidth, 16);
    EXPECT_EQ(camera.m_imageHeight, 12);
    EXPECT_EQ(camera.m_sensorType, 15);
    EXPECT_EQ(camera.m_maxGain, 99);
}

TEST_F(Connection, ReconnectingNeedsAnEarlierConnection)
{
    EXPECT_EQ(code(camera.reconnectDevice()), 780U);
    enumerated(1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    clearLogs();
    EXPECT_EQ(code(camera.reconnectDevice()), 777U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(Connection, ReconnectingWithoutFramesChangesNothing)
{
    Camera& device = enumerated(1, 2, 8, 4);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    for (const std::vector<Format>& formats :
         {std::vector<Format>{}, std::vector<Format>{{UVC_VS_FORMAT_UNCOMPRESSED, {}}}}) {
        device.formats = formats;
        clearLogs();
        EXPECT_EQ(code(camera.reconnectDevice()), 1047U);
        EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_format_descs handle1"));
        EXPECT_EQ(camera.m_imageWidth, 8);
        EXPECT_EQ(camera.m_imageHeight, 4);
        EXPECT_NE(camera.m_currentNode, nullptr);
    }
}

TEST_F(Connection, DisconnectingClosesTheCamera)
{
    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    CameraNode* connected = camera.m_currentNode;
    const std::string handle = addressText(connected->handle);
    clearLogs();

    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    EXPECT_THAT(
        bus.callTexts(),
        ElementsAre("uvc_close handle1", "uvc_unref_device context2/device0", "uvc_exit context2"));
    EXPECT_THAT(log.lines(),
                ElementsAre(debugLine("start CZRNCamera::disconnectDevice function"),
                            debugLine("start CZRNCamera::stopStream function"),
                            debugLine("end CZRNCamera::disconnectDevice function : " + handle)));
    EXPECT_EQ(camera.m_currentNode, nullptr);
    EXPECT_EQ(camera.m_serial, "4711");
    EXPECT_EQ(node("4711"), connected);
    EXPECT_EQ(connected->handle, nullptr);
    EXPECT_EQ(connected->device, nullptr);
    EXPECT_EQ(connected->context, nullptr);
    EXPECT_FALSE(connected->isOpen);
    EXPECT_FALSE(camera.heartBeartQuery());
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 771U);
}

TEST_F(Connection, DisconnectingStopsTheStreamFirst)
{
    enumerated(4711);
    OverridingCamera overriding;
    ASSERT_EQ(code(overriding.connectDeviceBySerial("ZR4711")), 0U);
    ASSERT_EQ(code(overriding.startStream(0)), 0U);
    overriding.calls.clear();
    clearLogs();

    EXPECT_EQ(code(overriding.disconnectDevice()), 0U);
    EXPECT_THAT(overriding.calls, ElementsAre("stopStream 0"));
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_stop_streaming handle1", "uvc_close handle1",
                            "uvc_unref_device context2/device0", "uvc_exit context2"));
    EXPECT_FALSE(overriding.m_isStreaming);
}

TEST_F(Connection, DisconnectingHoldsTheNodeLockWhileItCloses)
{
    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    clearLogs();
    bus.setHook([this](const fakeuvc::Call& call) {
        const bool readable = camera.m_nodeLock.tryLockForRead();
        EXPECT_FALSE(readable) << call.text;
        if (readable) {
            camera.m_nodeLock.unlock();
        }
    });
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    EXPECT_EQ(bus.calls().size(), 3U);
}

TEST_F(Connection, DisconnectingLetsOthersWorkWhileAControlRequestRuns)
{
    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    clearLogs();
    std::atomic<bool> runs = false;
    std::atomic<bool> release = false;
    bus.setHook([&](const fakeuvc::Call& call) {
        if (call.function == "uvc_get_hue") {
            runs = true;
            while (!release) {
                std::this_thread::yield();
            }
        }
    });
    std::thread slow([this] {
        int value = 0;
        EXPECT_TRUE(camera.hueIO(true, value));
    });
    while (!runs) {
        std::this_thread::yield();
    }
    std::atomic<bool> disconnected = false;
    WatchedThread disconnecter([&] {
        EXPECT_EQ(code(camera.disconnectDevice()), 0U);
        disconnected = true;
    });
    // It waits as soon as the device counts as closed; with the old order, the property would not
    // answer before the slow request ends.
    EXPECT_TRUE(disconnecter.waitsForOthers());
    QMap<QString, QVariant> values;
    EXPECT_EQ(code(camera.getProperty(zrn::keys::maxGrabWaitTime, values)), 0U);
    int value = 0;
    EXPECT_FALSE(camera.gammaIO(true, value));
    EXPECT_FALSE(disconnected);
    EXPECT_EQ(bus.count("uvc_close"), 0);
    release = true;
    slow.join();
    disconnecter.join();
    EXPECT_EQ(camera.m_currentNode, nullptr);
}

TEST_F(Connection, DisconnectingWithoutACameraIsRefused)
{
    EXPECT_EQ(code(camera.disconnectDevice()), 777U);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("start CZRNCamera::disconnectDevice function")));
}

TEST_F(Connection, AfterAnotherEnumerationTheSameSerialConnectsAgain)
{
    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    enumerate();
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
}

TEST_F(Connection, TheHeartBeatIsAGainRead)
{
    EXPECT_FALSE(camera.heartBeartQuery());
    enumerated(1);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR1")), 0U);
    clearLogs();
    EXPECT_TRUE(camera.heartBeartQuery());
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_gain handle1 GET_CUR"));
    bus.fail({"uvc_get_gain", UVC_ERROR_NO_DEVICE});
    EXPECT_FALSE(camera.heartBeartQuery());
}

TEST_F(Connection, TheHeartBeatAsksTheVirtualGain)
{
    OverridingCamera overriding;
    EXPECT_FALSE(overriding.heartBeartQuery());
    EXPECT_THAT(overriding.calls, IsEmpty());
    enumerated(1);
    ASSERT_EQ(code(overriding.connectDeviceBySerial("ZR1")), 0U);
    overriding.calls.clear();
    EXPECT_TRUE(overriding.heartBeartQuery());
    overriding.gainResult = ErrorCode::GainReadFailed;
    EXPECT_FALSE(overriding.heartBeartQuery());
    EXPECT_THAT(overriding.calls, ElementsAre("getGain 0", "getGain 0"));
}

TEST_F(Connection, TheSerialAsHostsSeeItHasAPrefix)
{
    QString serial = "before";
    EXPECT_FALSE(camera.readSerial(serial));
    EXPECT_EQ(serial, "before");

    enumerated(4711);
    ASSERT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    EXPECT_TRUE(camera.readSerial(serial));
    EXPECT_EQ(serial, "ZR4711");

    camera.m_currentNode->serial.clear();
    EXPECT_FALSE(camera.readSerial(serial));
    EXPECT_EQ(serial, "ZR");
}
