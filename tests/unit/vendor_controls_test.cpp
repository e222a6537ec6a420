// Settings and colour gains that travel on standard UVC controls, and the reset command.

#include "driver_test.h"
#include "sensor_numbers.h"

#include <QVariant>

using fakeuvc::Camera;
using fakeuvc::Control;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class VendorControls : public DriverTest
{
protected:
    /// Neither node lock nor control mutex is held across a transfer.
    void checkThatNoLockIsHeld()
    {
        bus.setHook([this](const fakeuvc::Call& call) {
            const bool writable = camera.m_nodeLock.tryLockForWrite();
            EXPECT_TRUE(writable) << call.text;
            if (writable) {
                camera.m_nodeLock.unlock();
            }
            const bool free = camera.m_controlMutex.tryLock();
            EXPECT_TRUE(free) << call.text;
            if (free) {
                camera.m_controlMutex.unlock();
            }
        });
    }
};

struct DirectControl {
    const char* name;
    bool (CZRNCamera::*io)(bool read, int& value);
    Control control;
    bool isSigned;
};

void PrintTo(const DirectControl& control, std::ostream* stream)
{
    *stream << control.name;
}

class DirectControls : public VendorControls, public testing::WithParamInterface<DirectControl>
{
protected:
    bool io(bool read, int& value) { return (camera.*GetParam().io)(read, value); }
    std::string getter() const { return std::string("uvc_get_") + GetParam().name; }
    std::string setter() const { return std::string("uvc_set_") + GetParam().name; }
};

struct ColorByte {
    const char* name;
    bool (CZRNCamera::*io)(bool read, int& value);
    int byte;
};

void PrintTo(const ColorByte& color, std::ostream* stream)
{
    *stream << color.name;
}

class ColorBytes : public VendorControls, public testing::WithParamInterface<ColorByte>
{
protected:
    bool io(bool read, int& value) { return (camera.*GetParam().io)(read, value); }
};

const std::vector<std::string> colorReads = {
    "uvc_get_gamma handle1 GET_CUR", "uvc_get_sharpness handle1 GET_CUR",
    "uvc_get_hue handle1 GET_CUR", "uvc_get_saturation handle1 GET_CUR"};

} // namespace

TEST_P(DirectControls, ReadAsSixteenBits)
{
    Camera& device = connect();
    checkThatNoLockIsHeld();
    int value = 1;
    for (const int current : {0, 1, 255, 32767}) {
        device[GetParam().control].current = current;
        EXPECT_TRUE(io(true, value));
        EXPECT_EQ(value, current);
    }
    device[GetParam().control].current = GetParam().isSigned ? -1 : 65535;
    EXPECT_TRUE(io(true, value));
    EXPECT_EQ(value, GetParam().isSigned ? -1 : 65535);
    EXPECT_EQ(bus.callTexts().front(), getter() + " handle1 GET_CUR");
    EXPECT_EQ(bus.count(getter()), 5);
    EXPECT_EQ(bus.calls().size(), 5U);
}

TEST_P(DirectControls, WriteTheLowSixteenBits)
{
    connect();
    checkThatNoLockIsHeld();
    int value = 70000;
    EXPECT_TRUE(io(false, value));
    EXPECT_EQ(value, 70000);
    value = 40000;
    EXPECT_TRUE(io(false, value));
    value = -2;
    EXPECT_TRUE(io(false, value));
    EXPECT_THAT(bus.callTexts(),
                ElementsAre(setter() + " handle1 4464",
                            setter() + (GetParam().isSigned ? " handle1 -25536" : " handle1 40000"),
                            setter() + (GetParam().isSigned ? " handle1 -2" : " handle1 65534")));
}

TEST_P(DirectControls, FailSilently)
{
    int value = 123;
    EXPECT_FALSE(io(true, value));
    EXPECT_FALSE(io(false, value));
    connect();
    bus.fail({getter(), UVC_ERROR_PIPE});
    bus.fail({setter(), UVC_ERROR_PIPE});
    EXPECT_FALSE(io(true, value));
    EXPECT_FALSE(io(false, value));
    EXPECT_EQ(value, 123);
    EXPECT_EQ(bus.calls().size(), 2U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    EveryControl, DirectControls,
    testing::Values(DirectControl{"hue", &CZRNCamera::hueIO, Control::Hue, true},
                    DirectControl{"sharpness", &CZRNCamera::sharpIO, Control::Sharpness, false},
                    DirectControl{"gamma", &CZRNCamera::gammaIO, Control::Gamma, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(VendorControls, TheColourWordIsPackedFromFourControls)
{
    connect();
    checkThatNoLockIsHeld();
    long packed = -1;
    EXPECT_TRUE(camera.colorRGBGainIO(true, packed));
    EXPECT_EQ(packed, 0x281E140AL);
    EXPECT_EQ(bus.callTexts(), colorReads);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VendorControls, ColourValuesAboveAByteSpillOver)
{
    Camera& device = connect();
    device[Control::Gamma].current = 0x1234;
    device[Control::Sharpness].current = 0x4001;
    device[Control::Hue].current = 0;
    device[Control::Saturation].current = 0xffff;
    long packed = 0;
    EXPECT_TRUE(camera.colorRGBGainIO(true, packed));
    EXPECT_EQ(packed, 0x1234L | 0x400100L | 0xffff000000L);
}

TEST_F(VendorControls, ANegativeHueSetsEveryBitAboveItsPlace)
{
    Camera& device = connect();
    device[Control::Hue].current = -1;
    long packed = 0;
    EXPECT_TRUE(camera.colorRGBGainIO(true, packed));
    EXPECT_EQ(static_cast<unsigned long>(packed), 0xffffffffffff140aUL);
    int value = 0;
    EXPECT_TRUE(camera.colorGBGainIO(true, value));
    EXPECT_EQ(value, 255);
    EXPECT_TRUE(camera.colorBGainIO(true, value));
    EXPECT_EQ(value, 255);
}

TEST_F(VendorControls, OnlyTheGammaReadCanFailTheColourWord)
{
    connect();
    long packed = 77;
    bus.fail({"uvc_get_gamma", UVC_ERROR_PIPE});
    EXPECT_FALSE(camera.colorRGBGainIO(true, packed));
    EXPECT_EQ(packed, 77);
    EXPECT_THAT(bus.callTexts(), ElementsAre(colorReads[0]));

    // A failed read repeats the value before it in the shared buffer; the hue has one of its own.
    struct Case {
        const char* function;
        long expected;
    };
    for (const Case& c : {Case{"uvc_get_sharpness", 0x281E0A0A}, Case{"uvc_get_hue", 0x2800140A},
                          Case{"uvc_get_saturation", 0x141E140A}}) {
        bus.clearFailures();
        bus.clearCalls();
        bus.fail({c.function, UVC_ERROR_PIPE});
        EXPECT_TRUE(camera.colorRGBGainIO(true, packed)) << c.function;
        EXPECT_EQ(packed, c.expected) << c.function;
        EXPECT_EQ(bus.callTexts(), colorReads);
    }
    bus.fail({"uvc_get_sharpness", UVC_ERROR_PIPE});
    EXPECT_TRUE(camera.colorRGBGainIO(true, packed));
    EXPECT_EQ(packed, 0x0A1E0A0A);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VendorControls, TheColourWordIsWrittenByteByByte)
{
    connect();
    checkThatNoLockIsHeld();
    long packed = static_cast<long>(0xfedcba98f0e1d2c3UL);
    EXPECT_TRUE(camera.colorRGBGainIO(false, packed));
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_set_gamma handle1 195", "uvc_set_sharpness handle1 210",
                            "uvc_set_hue handle1 225", "uvc_set_saturation handle1 240"));
    EXPECT_EQ(static_cast<unsigned long>(packed), 0xfedcba98f0e1d2c3UL);
}

TEST_F(VendorControls, OnlyTheGammaWriteCanFailTheColourWord)
{
    connect();
    long packed = 0x04030201;
    bus.fail({"uvc_set_sharpness", UVC_ERROR_PIPE});
    bus.fail({"uvc_set_hue", UVC_ERROR_PIPE});
    bus.fail({"uvc_set_saturation", UVC_ERROR_PIPE});
    EXPECT_TRUE(camera.colorRGBGainIO(false, packed));
    EXPECT_EQ(bus.calls().size(), 4U);
    bus.clearCalls();
    bus.fail({"uvc_set_gamma", UVC_ERROR_PIPE});
    EXPECT_FALSE(camera.colorRGBGainIO(false, packed));
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_set_gamma handle1 1"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VendorControls, WithoutACameraTheColourWordIsUntouched)
{
    long packed = 5;
    EXPECT_FALSE(camera.colorRGBGainIO(true, packed));
    EXPECT_FALSE(camera.colorRGBGainIO(false, packed));
    EXPECT_EQ(packed, 5);
}

TEST_P(ColorBytes, ReadOneByteOfTheWord)
{
    connect();
    int value = -1;
    EXPECT_TRUE(io(true, value));
    EXPECT_EQ(value, 10 * (GetParam().byte + 1));
    EXPECT_EQ(bus.callTexts(), colorReads);
}

TEST_P(ColorBytes, WriteOneByteAndTheOthersAsJustRead)
{
    connect();
    int value = 0x1FF - 55;
    EXPECT_TRUE(io(false, value));
    EXPECT_EQ(value, 0x1FF - 55);
    std::vector<std::string> expected = colorReads;
    const std::vector<std::string> setters = {"uvc_set_gamma", "uvc_set_sharpness", "uvc_set_hue",
                                              "uvc_set_saturation"};
    for (int i = 0; i < 4; ++i) {
        const int written = i == GetParam().byte ? 200 : 10 * (i + 1);
        expected.push_back(setters[static_cast<std::size_t>(i)] + " handle1 " +
                           std::to_string(written));
    }
    EXPECT_EQ(bus.callTexts(), expected);
}

TEST_P(ColorBytes, RewriteOverspillsAndHueSignsAsRead)
{
    Camera& device = connect();
    device[Control::Gamma].current = 0x0101;
    device[Control::Hue].current = -256;
    int value = 7;
    EXPECT_TRUE(io(false, value));
    // The word reads as bytes 01, 15, 00, ff with everything above set.
    std::array<int, 4> bytes = {0x01, 0x15, 0x00, 0xff};
    bytes[static_cast<std::size_t>(GetParam().byte)] = 7;
    EXPECT_EQ(device[Control::Gamma].current, bytes[0]);
    EXPECT_EQ(device[Control::Sharpness].current, bytes[1]);
    EXPECT_EQ(device[Control::Hue].current, bytes[2]);
    EXPECT_EQ(device[Control::Saturation].current, bytes[3]);
}

TEST_P(ColorBytes, AFailedReadFailsBothDirections)
{
    int value = 123;
    EXPECT_FALSE(io(true, value));
    EXPECT_FALSE(io(false, value));
    connect();
    bus.fail({"uvc_get_gamma", UVC_ERROR_PIPE});
    EXPECT_FALSE(io(true, value));
    EXPECT_FALSE(io(false, value));
    EXPECT_EQ(value, 123);
    EXPECT_THAT(bus.callTexts(), ElementsAre(colorReads[0], colorReads[0]));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(ColorBytes, AFailedGammaWriteFails)
{
    connect();
    bus.fail({"uvc_set_gamma", UVC_ERROR_PIPE});
    int value = 1;
    EXPECT_FALSE(io(false, value));
    EXPECT_EQ(bus.calls().size(), 5U);
}

INSTANTIATE_TEST_SUITE_P(EveryChannel, ColorBytes,
                         testing::Values(ColorByte{"R", &CZRNCamera::colorRGainIO, 0},
                                         ColorByte{"GR", &CZRNCamera::colorGRGainIO, 1},
                                         ColorByte{"GB", &CZRNCamera::colorGBGainIO, 2},
                                         ColorByte{"B", &CZRNCamera::colorBGainIO, 3}),
                         [](const auto& test) { return std::string(test.param.name); });

// Reset

TEST_F(VendorControls, ResettingWritesTheContrastBack)
{
    connect(7)[Control::Contrast].current = 0xabcd;
    checkThatNoLockIsHeld();
    EXPECT_TRUE(camera.resetCameraState());
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_get_contrast handle1 GET_CUR", "uvc_set_contrast handle1 43981"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VendorControls, SomeSensorTypesHaveNoReset)
{
    for (int connected = 0; connected < 2; ++connected) {
        int resets = 0;
        for (const int type : everySensor()) {
            camera.m_sensorType = type;
            const bool hasReset = sensorTypeOf(type).hasReset;
            EXPECT_EQ(camera.resetCameraState(), hasReset) << type;
            resets += hasReset ? 1 : 0;
        }
        if (connected == 0) {
            EXPECT_THAT(bus.callTexts(), IsEmpty());
            connect();
        } else {
            EXPECT_EQ(bus.count("uvc_set_contrast"), resets);
        }
    }
}

TEST_F(VendorControls, ResetFailuresAreLogged)
{
    connect(7);
    bus.fail({"uvc_set_contrast", UVC_ERROR_TIMEOUT});
    EXPECT_FALSE(camera.resetCameraState());
    bus.fail({"uvc_get_contrast", UVC_ERROR_PIPE});
    EXPECT_FALSE(camera.resetCameraState());
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine("reset camera state failed, ret: -7"),
                                         criticalLine("uvc_get_contrast get cur failed, ret: -9")));
    EXPECT_EQ(bus.count("uvc_set_contrast"), 1);
}

TEST_F(VendorControls, TheResetCommandIsKnownByItsHash)
{
    QMap<QString, QVariant> values = {{"other", 1}};
    EXPECT_EQ(code(camera.executeCommand("ClearState", values)), 512U);
    EXPECT_EQ(code(camera.executeCommand("anything", values)), 512U);

    Camera& device = connect(7);
    EXPECT_EQ(code(camera.executeCommand("ClearState", values)), 0U);
    EXPECT_EQ(bus.count("uvc_set_contrast"), 1);
    // Everything behind a NUL is not part of the text.
    EXPECT_EQ(code(camera.executeCommand(QString::fromLatin1("ClearState\0more", 15), values)), 0U);
    for (const char* text : {"", "clearstate", "ClearStat", "ClearState ", "Serial"}) {
        EXPECT_EQ(code(camera.executeCommand(text, values)), 775U) << text;
    }
    EXPECT_EQ(bus.count("uvc_set_contrast"), 2);
    EXPECT_EQ(device[Control::Contrast].current, 7);

    bus.fail({.function = "uvc_set_contrast"});
    EXPECT_EQ(code(camera.executeCommand("ClearState", values)), 781U);
    bus.clearFailures();
    camera.m_sensorType = 1;
    EXPECT_EQ(code(camera.executeCommand("ClearState", values)), 781U);
    EXPECT_EQ(values, (QMap<QString, QVariant>{{"other", 1}}));
}
