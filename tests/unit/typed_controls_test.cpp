// Exposure, gain and the other operations of the camera interface that are not about the stream.

#include "driver_test.h"
#include "sensor_numbers.h"
#include "virtual_clock.h"

#include <tuple>

using fakeuvc::Camera;
using fakeuvc::Control;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// What the camera's control pipe needs between two transfers.
constexpr auto controlPause = "pause of 32 ms";

class TypedControls : public DriverTest
{
protected:
    TypedControls()
    {
        clock.reset();
        clock.setHook([this](const VirtualClock::Sleep& sleep) { notePause(sleep); });
    }
    ~TypedControls() override { clock.reset(); }

    void notePause(const VirtualClock::Sleep& sleep)
    {
        bus.note("pause of " + std::to_string(sleep.length.count()) + " ms");
    }

    /// At each step the node lock is free; @p controlMutexHeld tells whether the control mutex is.
    void checkLocks(std::vector<bool>& controlMutexHeld)
    {
        const auto check = [this, &controlMutexHeld](const std::string& step) {
            const bool writable = camera.m_nodeLock.tryLockForWrite();
            EXPECT_TRUE(writable) << step;
            if (writable) {
                camera.m_nodeLock.unlock();
            }
            const bool free = camera.m_controlMutex.tryLock();
            if (free) {
                camera.m_controlMutex.unlock();
            }
            controlMutexHeld.push_back(!free);
        };
        bus.setHook([check](const fakeuvc::Call& call) { check(call.text); });
        clock.setHook([this, check](const VirtualClock::Sleep& sleep) {
            notePause(sleep);
            check("pause");
        });
    }

    VirtualClock& clock = VirtualClock::instance();
};

class TypedControlsOfSensor : public TypedControls, public testing::WithParamInterface<int>
{
};

} // namespace

// Exposure

TEST_F(TypedControls, ExposureRangeReadsMaximumThenMinimum)
{
    connect(2)[Control::Brightness].minimum = 7;
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    EXPECT_EQ(code(camera.getExposureTimeRange(minimum, maximum, 0)), 0U);
    EXPECT_EQ(minimum, 7U);
    EXPECT_EQ(maximum, 5000U);
    EXPECT_THAT(bus.steps(), ElementsAre("uvc_get_brightness handle1 GET_MAX", controlPause,
                                         "uvc_get_brightness handle1 GET_MIN"));
    EXPECT_THAT(log.lines(), IsEmpty());
    // Only connecting stores the limits.
    EXPECT_EQ(camera.m_minExposureTime, 1U);
}

TEST_F(TypedControls, ExposureRangeWithoutMaximumScalesTheCallersOwn)
{
    Camera& device = connect(0);
    device[Control::Brightness].minimum = 3;
    bus.fail({.function = "uvc_get_brightness", .error = UVC_ERROR_PIPE, .request = UVC_GET_MAX});
    unsigned int minimum = 5;
    unsigned int maximum = 7;
    EXPECT_EQ(code(camera.getExposureTimeRange(minimum, maximum, 0)), 1039U);
    EXPECT_EQ(minimum, 300U);
    EXPECT_EQ(maximum, 700U);
    EXPECT_THAT(log.lines(),
                ElementsAre(criticalLine(" uvc_get_exposure_abs get max failed ret: -9")));
    EXPECT_THAT(bus.steps(), ElementsAre("uvc_get_brightness handle1 GET_MAX", controlPause,
                                         "uvc_get_brightness handle1 GET_MIN"));
}

TEST_F(TypedControls, ExposureRangeWithoutMinimumIsNotLogged)
{
    connect(0);
    bus.fail({.function = "uvc_get_brightness", .request = UVC_GET_MIN});
    unsigned int minimum = 5;
    unsigned int maximum = 7;
    EXPECT_EQ(code(camera.getExposureTimeRange(minimum, maximum, 0)), 1039U);
    EXPECT_EQ(minimum, 500U);
    EXPECT_EQ(maximum, 500000U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, ExposureRangeThatCannotBeReadIsScaledAllTheSame)
{
    connect(1);
    bus.fail({.function = "uvc_get_brightness"});
    unsigned int minimum = 5;
    unsigned int maximum = 7;
    EXPECT_EQ(code(camera.getExposureTimeRange(minimum, maximum, 0)), 1039U);
    EXPECT_EQ(minimum, 111U);
    EXPECT_EQ(maximum, 155U);
}

TEST_F(TypedControls, ANegativeLimitIsSignExtended)
{
    for (const auto& [sensorType, expected] : std::vector<std::pair<int, unsigned>>{
             {2, 4294967295U}, {0, 4294967196U}, {1, 4294967295U}}) {
        CameraProbe probe;
        Camera& device = connect(probe, sensorType, 8, 4);
        device[Control::Brightness].minimum = -1;
        unsigned int minimum = 0;
        unsigned int maximum = 0;
        EXPECT_EQ(code(probe.getExposureTimeRange(minimum, maximum, 0)), 0U);
        EXPECT_EQ(minimum, expected) << sensorType;
        bus.unplugAll();
    }
}

TEST_P(TypedControlsOfSensor, ExposureIsConvertedOnItsWayToTheDeviceAndBack)
{
    Camera& device = connect();
    camera.m_sensorType = GetParam();
    device[Control::Brightness].current = 45;
    unsigned int time = 0;
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 0U);
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    EXPECT_EQ(code(camera.getExposureTimeRange(minimum, maximum, 0)), 0U);
    EXPECT_EQ(code(camera.setExposureTime(1000, 0)), 0U);

    switch (sensorTypeOf(GetParam()).exposureStep) {
    case ExposureStep::Hundred:
        EXPECT_EQ(time, 4500U);
        EXPECT_EQ(maximum, 500000U);
        EXPECT_EQ(device[Control::Brightness].current, 10);
        EXPECT_EQ(camera.m_exposureTime, 10);
        break;
    case ExposureStep::Fractional:
        EXPECT_EQ(time, 999U);
        EXPECT_EQ(maximum, 111100U);
        EXPECT_EQ(device[Control::Brightness].current, 45);
        EXPECT_EQ(camera.m_exposureTime, 45);
        break;
    case ExposureStep::One:
        EXPECT_EQ(time, 45U);
        EXPECT_EQ(maximum, 5000U);
        EXPECT_EQ(device[Control::Brightness].current, 1000);
        EXPECT_EQ(camera.m_exposureTime, 1000);
        break;
    }
}

INSTANTIATE_TEST_SUITE_P(EverySensor, TypedControlsOfSensor, testing::ValuesIn(everySensor()));

TEST_F(TypedControls, SettingTheExposureWritesAndReadsBackWithPauses)
{
    connect(0);
    EXPECT_EQ(code(camera.setExposureTime(12345, 0)), 0U);
    EXPECT_THAT(bus.steps(), ElementsAre(controlPause, "uvc_set_brightness handle1 123",
                                         controlPause, "uvc_get_brightness handle1 GET_CUR"));
    EXPECT_EQ(camera.m_exposureTime, 123);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, SettingTheExposureWithoutReadBackOnlyWrites)
{
    connect(2)[Control::Brightness].nextReads = {1, 2};
    camera.m_exposureReadBack = false;
    EXPECT_EQ(code(camera.setExposureTime(77, 0)), 0U);
    EXPECT_THAT(bus.steps(), ElementsAre(controlPause, "uvc_set_brightness handle1 77"));
    EXPECT_EQ(camera.m_exposureTime, 77);
}

TEST_F(TypedControls, AnExposureThatReadsBackDifferentlyIsWrittenOnceMore)
{
    connect(2)[Control::Brightness].nextReads = {76, 77};
    EXPECT_EQ(code(camera.setExposureTime(77, 0)), 0U);
    EXPECT_THAT(bus.steps(), ElementsAre(controlPause, "uvc_set_brightness handle1 77",
                                         controlPause, "uvc_get_brightness handle1 GET_CUR",
                                         controlPause, "uvc_set_brightness handle1 77",
                                         controlPause, "uvc_get_brightness handle1 GET_CUR"));
    EXPECT_EQ(camera.m_exposureTime, 77);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, AnExposureThatStaysDifferentIsAnError)
{
    connect(2)[Control::Brightness].nextReads = {76, 76, 77};
    EXPECT_EQ(code(camera.setExposureTime(77, 0)), 1038U);
    EXPECT_EQ(bus.calls().size(), 4U);
    EXPECT_EQ(camera.m_exposureTime, 10);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, ExposureFailuresLeaveTheCachedValue)
{
    struct Case {
        fakeuvc::Failure failure;
        unsigned result;
        std::size_t calls;
        std::vector<LogLine> lines;
    };
    const std::vector<Case> cases = {
        {{"uvc_set_brightness", UVC_ERROR_PIPE},
         1037,
         1,
         {criticalLine(" uvc_set_exposure_abs failed ret: -9")}},
        {{"uvc_get_brightness", UVC_ERROR_TIMEOUT},
         1038,
         2,
         {criticalLine(" uvc_get_exposure_abs failed ret: -7")}},
        // The second attempt is not logged.
        {{"uvc_set_brightness", UVC_ERROR_PIPE, 2}, 1037, 3, {}},
        {{"uvc_get_brightness", UVC_ERROR_PIPE, 2}, 1038, 4, {}},
    };
    Camera& device = connect(2);
    for (const Case& c : cases) {
        clearLogs();
        bus.clearFailures();
        bus.fail(c.failure);
        device[Control::Brightness].nextReads = {76};
        EXPECT_EQ(code(camera.setExposureTime(77, 0)), c.result);
        EXPECT_EQ(bus.calls().size(), c.calls);
        EXPECT_EQ(log.lines(), c.lines);
        EXPECT_EQ(camera.m_exposureTime, 10);
        device[Control::Brightness].nextReads.clear();
    }
}

TEST_F(TypedControls, AnExposureOutOfRangeIsRefusedBeforeAnythingElse)
{
    // Before connecting, the range is empty.
    for (const unsigned int time : {0U, 10U, 1000U, 4294967295U}) {
        EXPECT_EQ(code(camera.setExposureTime(time, 0)), 780U);
    }
    connect(2);
    EXPECT_EQ(code(camera.setExposureTime(0, 0)), 780U);
    EXPECT_EQ(code(camera.setExposureTime(5001, 0)), 780U);
    EXPECT_EQ(code(camera.setExposureTime(0xffffffff, 0)), 780U);
    EXPECT_THAT(bus.steps(), IsEmpty());
    EXPECT_EQ(code(camera.setExposureTime(1, 0)), 0U);
    EXPECT_EQ(code(camera.setExposureTime(5000, 0)), 0U);
}

TEST_F(TypedControls, ALongExposureWrapsIntoSixteenBits)
{
    connect(2);
    camera.m_maxExposureTime = 100000;
    EXPECT_EQ(code(camera.setExposureTime(40000, 0)), 0U);
    EXPECT_EQ(bus.callTexts().front(), "uvc_set_brightness handle1 -25536");
    EXPECT_EQ(camera.m_exposureTime, -25536);
}

TEST_F(TypedControls, ReadingTheExposureAsksTheDevice)
{
    Camera& device = connect(2);
    device[Control::Brightness].current = 321;
    unsigned int time = 0;
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 0U);
    EXPECT_EQ(time, 321U);
    EXPECT_THAT(bus.steps(), ElementsAre("uvc_get_brightness handle1 GET_CUR"));
    EXPECT_EQ(camera.m_exposureTime, 10);

    clearLogs();
    bus.fail({"uvc_get_brightness", UVC_ERROR_IO});
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 1038U);
    EXPECT_EQ(time, 321U);
    EXPECT_THAT(log.lines(),
                ElementsAre(criticalLine(" uvc_get_exposure_abs get_cur failed ret: -1")));
}

TEST_F(TypedControls, NegativeReadingsAreConvertedAsTheSensorWants)
{
    Camera& device = connect(0);
    device[Control::Brightness].current = -1;
    for (const auto& [sensorType, expected] : std::vector<std::pair<int, unsigned>>{
             {0, 4294967196U}, {15, 4294967196U}, {1, 0U}, {5, 0U}, {2, 4294967295U}}) {
        camera.m_sensorType = sensorType;
        unsigned int time = 1;
        EXPECT_EQ(code(camera.getExposureTime(time, 0)), 0U);
        EXPECT_EQ(time, expected) << sensorType;
    }
}

// Gain

TEST_F(TypedControls, GainRangeReadsMinimumThenMaximum)
{
    connect();
    unsigned short minimum = 0;
    unsigned short maximum = 0;
    EXPECT_EQ(code(camera.getGainRange(minimum, maximum, 0)), 0U);
    EXPECT_EQ(minimum, 2);
    EXPECT_EQ(maximum, 200);
    EXPECT_THAT(bus.steps(),
                ElementsAre("uvc_get_gain handle1 GET_MIN", "uvc_get_gain handle1 GET_MAX"));
}

TEST_F(TypedControls, AGainRangeThatCannotBeReadIsTheStoredOne)
{
    connect();
    camera.m_minGain = 33;
    camera.m_maxGain = 44;
    bus.fail({.function = "uvc_get_gain", .request = UVC_GET_MIN});
    unsigned short minimum = 0;
    unsigned short maximum = 0;
    EXPECT_EQ(code(camera.getGainRange(minimum, maximum, 0)), 0U);
    EXPECT_EQ(minimum, 33);
    EXPECT_EQ(maximum, 200);
    bus.fail({.function = "uvc_get_gain", .request = UVC_GET_MAX});
    EXPECT_EQ(code(camera.getGainRange(minimum, maximum, 0)), 0U);
    EXPECT_EQ(minimum, 33);
    EXPECT_EQ(maximum, 44);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, SettingTheGainWritesUnderTheControlMutexAndReadsBackWithoutIt)
{
    connect();
    std::vector<bool> controlMutexHeld;
    checkLocks(controlMutexHeld);
    EXPECT_EQ(code(camera.setGain(50, 0)), 0U);
    EXPECT_THAT(bus.steps(), ElementsAre(controlPause, "uvc_set_gain handle1 50", controlPause,
                                         "uvc_get_gain handle1 GET_CUR"));
    EXPECT_THAT(controlMutexHeld, ElementsAre(true, true, false, false));
    EXPECT_EQ(camera.m_gain, 50);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, SettingTheGainWithoutReadBackOnlyWrites)
{
    connect()[Control::Gain].nextReads = {1, 2};
    camera.m_gainReadBack = false;
    EXPECT_EQ(code(camera.setGain(50, 0)), 0U);
    EXPECT_THAT(bus.steps(), ElementsAre(controlPause, "uvc_set_gain handle1 50"));
    EXPECT_EQ(camera.m_gain, 50);
}

TEST_F(TypedControls, AGainThatReadsBackDifferentlyIsWrittenOnceMore)
{
    connect()[Control::Gain].nextReads = {49, 50};
    std::vector<bool> controlMutexHeld;
    checkLocks(controlMutexHeld);
    EXPECT_EQ(code(camera.setGain(50, 0)), 0U);
    EXPECT_THAT(bus.steps(),
                ElementsAre(controlPause, "uvc_set_gain handle1 50", controlPause,
                            "uvc_get_gain handle1 GET_CUR", controlPause, "uvc_set_gain handle1 50",
                            controlPause, "uvc_get_gain handle1 GET_CUR"));
    EXPECT_THAT(controlMutexHeld, ElementsAre(true, true, false, false, false, true, true, false));
    EXPECT_EQ(camera.m_gain, 50);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, AGainThatStaysDifferentIsAWriteError)
{
    connect()[Control::Gain].nextReads = {49, 49, 50};
    EXPECT_EQ(code(camera.setGain(50, 0)), 1040U);
    EXPECT_EQ(bus.calls().size(), 4U);
    EXPECT_EQ(camera.m_gain, 10);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, GainFailuresLeaveTheCachedValueAndTheMutexFree)
{
    struct Case {
        fakeuvc::Failure failure;
        unsigned result;
        std::size_t calls;
        std::vector<LogLine> lines;
    };
    const std::vector<Case> cases = {
        {{"uvc_set_gain", UVC_ERROR_PIPE}, 1040, 1, {criticalLine(" uvc_set_gain failed ret: -9")}},
        {{"uvc_get_gain", UVC_ERROR_IO},
         1041,
         2,
         {criticalLine(" uvc_get_gain get cur failed ret: -1")}},
        // The second attempt is not logged.
        {{"uvc_set_gain", UVC_ERROR_PIPE, 2}, 1040, 3, {}},
        {{"uvc_get_gain", UVC_ERROR_PIPE, 2}, 1041, 4, {}},
    };
    Camera& device = connect();
    for (const Case& c : cases) {
        clearLogs();
        bus.clearFailures();
        bus.fail(c.failure);
        device[Control::Gain].nextReads = {49};
        EXPECT_EQ(code(camera.setGain(50, 0)), c.result);
        EXPECT_EQ(bus.calls().size(), c.calls);
        EXPECT_EQ(log.lines(), c.lines);
        EXPECT_EQ(camera.m_gain, 10);
        EXPECT_TRUE(camera.m_controlMutex.tryLock());
        camera.m_controlMutex.unlock();
        device[Control::Gain].nextReads.clear();
    }
}

TEST_F(TypedControls, AGainOutOfRangeIsRefusedBeforeAnythingElse)
{
    EXPECT_EQ(code(camera.setGain(0, 0)), 780U);
    EXPECT_EQ(code(camera.setGain(256, 0)), 780U);
    EXPECT_EQ(code(camera.setGain(1, 0)), 512U);
    EXPECT_EQ(code(camera.setGain(255, 0)), 512U);
    connect();
    EXPECT_EQ(code(camera.setGain(1, 0)), 780U);
    EXPECT_EQ(code(camera.setGain(201, 0)), 780U);
    EXPECT_THAT(bus.steps(), IsEmpty());
    EXPECT_EQ(code(camera.setGain(2, 0)), 0U);
    EXPECT_EQ(code(camera.setGain(200, 0)), 0U);
}

TEST_F(TypedControls, ReadingTheGainHoldsTheControlMutex)
{
    Camera& device = connect();
    device[Control::Gain].current = 65535;
    std::vector<bool> controlMutexHeld;
    checkLocks(controlMutexHeld);
    unsigned short gain = 1;
    EXPECT_EQ(code(camera.getGain(gain, 0)), 0U);
    EXPECT_EQ(gain, 65535);
    EXPECT_THAT(bus.steps(), ElementsAre("uvc_get_gain handle1 GET_CUR"));
    EXPECT_THAT(controlMutexHeld, ElementsAre(true));

    clearLogs();
    bus.fail({"uvc_get_gain", UVC_ERROR_NO_DEVICE});
    EXPECT_EQ(code(camera.getGain(gain, 0)), 1041U);
    EXPECT_EQ(gain, 65535);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" uvc_get_gain get cur failed ret: -4")));
    EXPECT_TRUE(camera.m_controlMutex.tryLock());
    camera.m_controlMutex.unlock();
}

TEST_F(TypedControls, OtherTransfersTakeNoLock)
{
    connect();
    std::vector<bool> controlMutexHeld;
    checkLocks(controlMutexHeld);
    unsigned int minimum = 0;
    unsigned int maximum = 0;
    unsigned short minimumGain = 0;
    unsigned short maximumGain = 0;
    camera.getExposureTimeRange(minimum, maximum, 0);
    camera.getExposureTime(minimum, 0);
    camera.setExposureTime(100, 0);
    camera.getGainRange(minimumGain, maximumGain, 0);
    EXPECT_EQ(bus.calls().size(), 7U);
    EXPECT_EQ(controlMutexHeld.size(), bus.steps().size());
    EXPECT_THAT(controlMutexHeld, testing::Each(false));
}

// The rest

TEST_F(TypedControls, WithoutACameraTheDeviceOperationsAnswerSo)
{
    unsigned int first = 11;
    unsigned int second = 12;
    unsigned short gain = 13;
    unsigned short otherGain = 14;
    CameraSpace::PixelFormatType format{};
    camera.m_minExposureTime = 0;
    camera.m_maxExposureTime = 1000;
    EXPECT_EQ(code(camera.getExposureTimeRange(first, second, 0)), 512U);
    EXPECT_EQ(code(camera.setExposureTime(10, 0)), 512U);
    EXPECT_EQ(code(camera.getExposureTime(first, 0)), 512U);
    EXPECT_EQ(code(camera.getGainRange(gain, otherGain, 0)), 512U);
    EXPECT_EQ(code(camera.setGain(10, 0)), 512U);
    EXPECT_EQ(code(camera.getGain(gain, 0)), 512U);
    EXPECT_EQ(code(camera.getMaxImageSize(first, second, 0)), 512U);
    EXPECT_EQ(code(camera.getInterestSize(first, second, 0)), 512U);
    EXPECT_EQ(code(camera.getPixelFormat(format, 0)), 512U);
    EXPECT_EQ(first, 11U);
    EXPECT_EQ(second, 12U);
    EXPECT_EQ(gain, 13);
    EXPECT_EQ(otherGain, 14);
    EXPECT_EQ(static_cast<unsigned>(format), 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TypedControls, SizesAndFormatComeFromTheFields)
{
    connect(2, 640, 480);
    unsigned int width = 0;
    unsigned int height = 0;
    EXPECT_EQ(code(camera.getMaxImageSize(width, height, 0)), 0U);
    EXPECT_EQ(width, 640U);
    EXPECT_EQ(height, 480U);
    camera.m_imageWidth = 17;
    camera.m_imageHeight = 19;
    EXPECT_EQ(code(camera.getInterestSize(width, height, 0)), 0U);
    EXPECT_EQ(width, 17U);
    EXPECT_EQ(height, 19U);
    CameraSpace::PixelFormatType format{};
    EXPECT_EQ(code(camera.getPixelFormat(format, 0)), 0U);
    EXPECT_EQ(static_cast<unsigned>(format), 272U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(TypedControls, AreasOfInterestAreNotSupported)
{
    for (const bool connected : {false, true}) {
        if (connected) {
            connect(2, 640, 480);
        }
        unsigned int x = 5;
        unsigned int y = 6;
        EXPECT_EQ(code(camera.setInterestSize(1, 2, 0)), 775U);
        EXPECT_EQ(code(camera.setAOIOffset(3, 4, 0)), 775U);
        EXPECT_EQ(code(camera.getAOIOffset(x, y, 0)), 775U);
        EXPECT_EQ(x, 5U);
        EXPECT_EQ(y, 6U);
        EXPECT_EQ(camera.m_imageWidth, connected ? 640 : 1280);
        EXPECT_EQ(camera.m_imageHeight, connected ? 480 : 1024);
        EXPECT_THAT(bus.callTexts(), IsEmpty());
    }
}

TEST_F(TypedControls, TheTriggerModeIsKeptAndReportedThoughNotSupported)
{
    CameraSpace::TriggerMode mode{};
    EXPECT_EQ(code(camera.getTriggerMode(mode, 0)), 775U);
    EXPECT_EQ(static_cast<unsigned>(mode), 2U);
    for (const unsigned value : {0U, 1U, 7U, 0xffffffffU}) {
        EXPECT_EQ(code(camera.setTriggerMode(static_cast<CameraSpace::TriggerMode>(value), 0)),
                  775U);
        EXPECT_EQ(code(camera.getTriggerMode(mode, 0)), 775U);
        EXPECT_EQ(static_cast<unsigned>(mode), value);
    }
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(TypedControls, TheSelectorIsIgnored)
{
    connect();
    for (const signed char selector :
         {static_cast<signed char>(-128), static_cast<signed char>(127)}) {
        unsigned int value = 0;
        unsigned int other = 0;
        unsigned short gain = 0;
        EXPECT_EQ(code(camera.getExposureTime(value, selector)), 0U);
        EXPECT_EQ(code(camera.getMaxImageSize(value, other, selector)), 0U);
        EXPECT_EQ(code(camera.getGain(gain, selector)), 0U);
        EXPECT_EQ(code(camera.setAOIOffset(0, 0, selector)), 775U);
        EXPECT_EQ(code(camera.startStream(selector)), 0U);
        EXPECT_EQ(code(camera.stopStream(selector)), 0U);
    }
}

TEST_F(TypedControls, CriticalLinesFollowTheCategorysLevel)
{
    connect();
    bus.fail({.function = "uvc_get_brightness"});
    unsigned int time = 0;
    CameraProbe::m_category.setEnabled(QtCriticalMsg, false);
    EXPECT_EQ(code(camera.getExposureTime(time, 0)), 1038U);
    CameraProbe::m_category.setEnabled(QtCriticalMsg, true);
    EXPECT_THAT(log.lines(), IsEmpty());
}
