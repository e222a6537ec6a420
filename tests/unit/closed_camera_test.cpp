// Objects whose camera was closed by another enumeration or another object: no libuvc call is made,
// and each operation answers as if libuvc had reported that the device is gone.

#include "driver_test.h"
#include "stdout_capture.h"

#include <QVariant>

using CameraSpace::ImageBlock;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class ClosedCamera : public DriverTest
{
protected:
    ClosedCamera() { connect(2, 8, 4); }

    /// Another object on the same camera disconnects.
    void closeByAnotherObject()
    {
        CameraProbe other;
        ASSERT_EQ(code(other.connectDeviceBySerial("ZR4711")), 0U);
        ASSERT_EQ(code(other.disconnectDevice()), 0U);
        clearLogs();
    }
    void closeByEnumeration()
    {
        enumerate();
        ASSERT_EQ(camera.m_currentNode->handle, nullptr);
    }
};

} // namespace

TEST_F(ClosedCamera, AnswersWithoutACall)
{
    closeByAnotherObject();
    unsigned int time = 3;
    unsigned int otherTime = 4;
    unsigned short gain = 5;
    unsigned short otherGain = 6;
    int value = 7;
    long packed = 8;
    QMap<QString, QVariant> map;
    QString serial;
    CameraSpace::PixelFormatType format{};

    EXPECT_EQ(code(camera.getExposureTimeRange(time, otherTime, 0)), 1039U);
    EXPECT_EQ(time, 3U);
    EXPECT_EQ(otherTime, 4U);
    EXPECT_EQ(code(camera.setExposureTime(100, 0)), 1037U);
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 1038U);
    EXPECT_EQ(code(camera.getGainRange(gain, otherGain, 0)), 0U);
    EXPECT_EQ(gain, 2);
    EXPECT_EQ(otherGain, 200);
    EXPECT_EQ(code(camera.setGain(50, 0)), 1040U);
    EXPECT_EQ(code(camera.getGain(gain, 0)), 1041U);
    EXPECT_FALSE(camera.hueIO(true, value));
    EXPECT_FALSE(camera.hueIO(false, value));
    EXPECT_FALSE(camera.sharpIO(true, value));
    EXPECT_FALSE(camera.gammaIO(false, value));
    EXPECT_FALSE(camera.colorRGBGainIO(true, packed));
    EXPECT_FALSE(camera.colorRGBGainIO(false, packed));
    EXPECT_FALSE(camera.colorBGainIO(true, value));
    EXPECT_FALSE(camera.resetCameraState());
    EXPECT_EQ(code(camera.executeCommand("ClearState", map)), 781U);
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_FALSE(camera.readResolutionList(map));
    EXPECT_FALSE(camera.resolutionIndexIO(true, value));
    EXPECT_EQ(code(camera.reconnectDevice()), 1047U);
    EXPECT_FALSE(camera.heartBeartQuery());
    EXPECT_EQ(value, 7);
    EXPECT_EQ(packed, 8);

    // What needs no device is answered.
    EXPECT_TRUE(camera.readSerial(serial));
    EXPECT_EQ(serial, "ZR4711");
    EXPECT_EQ(code(camera.getMaxImageSize(time, otherTime, 0)), 0U);
    EXPECT_EQ(code(camera.getPixelFormat(format, 0)), 0U);
    value = 1;
    EXPECT_TRUE(camera.cacheFrameCountIO(true, value));

    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine(" uvc_get_exposure_abs get max failed ret: -4"),
                            criticalLine(" uvc_set_exposure_abs failed ret: -4"),
                            criticalLine(" uvc_get_exposure_abs get_cur failed ret: -4"),
                            criticalLine(" uvc_set_gain failed ret: -4"),
                            criticalLine(" uvc_get_gain get cur failed ret: -4"),
                            criticalLine("uvc_get_contrast get cur failed, ret: -4"),
                            criticalLine("uvc_get_contrast get cur failed, ret: -4"),
                            criticalLine(" uvc_get_stream_ctrl_format_size faild ret: -4"),
                            criticalLine("readResolutionList: get image format is failed"),
                            criticalLine("readResolutionList: get image format is failed"),
                            criticalLine(" uvc_get_gain get cur failed ret: -4")));
}

TEST_F(ClosedCamera, ClosedByEnumerationAnswersTheSame)
{
    closeByEnumeration();
    unsigned int time = 3;
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 1038U);
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_EQ(code(camera.reconnectDevice()), 1047U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());

    // The object can let go and take the new node.
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(code(camera.connectDeviceBySerial("ZR4711")), 0U);
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 0U);
}

TEST_F(ClosedCamera, InitialisingFallsBackAsForAFailingDevice)
{
    closeByAnotherObject();
    EXPECT_TRUE(camera.initializeCamera());
    EXPECT_EQ(camera.m_sensorType, 0);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(QtCriticalMsg),
                ElementsAre(criticalLine("uvc_get_contrast failed ret: -4"),
                            criticalLine(" uvc_get_exposure_abs get max failed ret: -4")));
}

TEST_F(ClosedCamera, StoppingClearsTheFlag)
{
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.m_frameRate = 5.0;
    closeByAnotherObject();
    EXPECT_TRUE(camera.m_isStreaming);
    EXPECT_EQ(code(camera.stopStream(0)), 0U);
    EXPECT_FALSE(camera.m_isStreaming);
    EXPECT_EQ(camera.m_frameRate, 0.0);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(code(camera.stopStream(0)), 1033U);
}

TEST_F(ClosedCamera, AnEnumerationWhileStreamingEndsInAStoppedObject)
{
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    closeByEnumeration();
    camera.m_grabTimeout = 1;
    QList<ImageBlock*> images;
    EXPECT_EQ(code(camera.grabImage(images)), 1034U);
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    EXPECT_FALSE(camera.m_isStreaming);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(ClosedCamera, DisconnectingLogsANullHandle)
{
    closeByAnotherObject();
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(log.lines().back(), debugLine("end CZRNCamera::disconnectDevice function : 0x0"));
    EXPECT_EQ(camera.m_currentNode, nullptr);
}

TEST_F(ClosedCamera, DestroyingTheObjectTouchesNothing)
{
    auto other = std::make_unique<CameraProbe>();
    ASSERT_EQ(code(other->connectDeviceBySerial("ZR4711")), 0U);
    ASSERT_EQ(code(other->startStream(0)), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    clearLogs();
    other.reset();
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}
