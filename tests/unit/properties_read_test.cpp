// Reading properties by their keys.

#include "client/property_table.h"
#include "driver_test.h"
#include "sensor_numbers.h"

#include <QVariant>

using fakeuvc::Camera;
using fakeuvc::Control;
using testing::ElementsAre;
using testing::IsEmpty;
using zrn::PropertyInfo;

namespace keys = zrn::keys;

using Values = QMap<QString, QVariant>;

namespace
{

class PropertiesRead : public DriverTest
{
protected:
    /// The value of a property that must be readable; other entries of the map must survive.
    QVariant read(const char* key)
    {
        Values values = {{"other", 1}, {"value", "before"}};
        EXPECT_EQ(code(camera.getProperty(key, values)), 0U) << key;
        EXPECT_EQ(values.size(), 2) << key;
        EXPECT_EQ(values["other"], QVariant(1)) << key;
        return values["value"];
    }
    /// The result of a read that must fail and leave the map alone.
    unsigned refused(const QString& key)
    {
        const Values before = {{"other", 1}, {"value", "before"}};
        Values values = before;
        const unsigned result = code(camera.getProperty(key, values));
        EXPECT_NE(result, 0U) << key.toStdString();
        EXPECT_EQ(values, before) << key.toStdString();
        Values empty;
        EXPECT_EQ(code(camera.getProperty(key, empty)), result);
        EXPECT_TRUE(empty.isEmpty());
        return result;
    }
    static void expectExactly(const QVariant& value, const QVariant& expected)
    {
        EXPECT_STREQ(value.typeName(), expected.typeName());
        EXPECT_EQ(value, expected) << value.toString().toStdString();
    }
};

struct ControlKey {
    const char* key;
    Control control;
    const char* getter;
    bool isSigned;
};

class ControlKeys : public PropertiesRead, public testing::WithParamInterface<ControlKey>
{
};

void PrintTo(const ControlKey& control, std::ostream* stream)
{
    *stream << control.key;
}

} // namespace

TEST_F(PropertiesRead, WithoutACameraEveryKeyAnswersSo)
{
    for (const PropertyInfo& property : zrn::propertyTable) {
        EXPECT_EQ(refused(property.key), 512U) << property.key;
    }
    EXPECT_EQ(refused("unknown"), 512U);
    EXPECT_EQ(refused(""), 512U);
    EXPECT_EQ(log.lines().size(), 40U);
    EXPECT_EQ(log.lines().front(), debugLine(" getPproerty: \"BGain\""));
    EXPECT_EQ(log.lines().back(), debugLine(" getPproerty: \"\""));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(PropertiesRead, EachReadIsLoggedFirst)
{
    connect(2, 8, 4);
    read(keys::capturePeriod);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine(" getPproerty: \"CapturePeriod\"")));
    clearLogs();
    CameraProbe::m_category.setEnabled(QtDebugMsg, false);
    read(keys::capturePeriod);
    CameraProbe::m_category.setEnabled(QtDebugMsg, true);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PropertiesRead, EveryKeyOfTheHostsIsKnown)
{
    connect(2, 8, 4);
    for (const PropertyInfo& property : zrn::propertyTable) {
        Values values;
        const unsigned result = code(camera.getProperty(property.key, values));
        // The sizes of a camera that has some are never listed.
        EXPECT_EQ(result, property.key == std::string_view(keys::resolutionList) ? 779U : 0U)
            << property.key;
    }
}

TEST_F(PropertiesRead, UnknownKeysAreNotSupported)
{
    connect(2, 8, 4);
    for (const char* key : {"", "unknown", "serial", "SERIAL", "Serial ", " Serial", "ClearState",
                            "value", "aux parameter"}) {
        EXPECT_EQ(refused(key), 775U) << key;
    }
    EXPECT_EQ(refused(QString("Ser") + QChar(0x0131) + "al"), 775U);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(PropertiesRead, KeysEndAtTheirFirstNul)
{
    connect(2, 8, 4);
    Values values;
    EXPECT_EQ(code(camera.getProperty(QString::fromLatin1("Serial\0rest", 11), values)), 0U);
    EXPECT_EQ(values["value"], QVariant("ZR4711"));
    EXPECT_EQ(refused(QString::fromLatin1("\0Serial", 7)), 775U);
}

TEST_F(PropertiesRead, FieldsAreReadAsTheyStand)
{
    connect(2, 8, 4);
    expectExactly(read(keys::capturePeriod), QVariant(10U));
    expectExactly(read(keys::maxGrabWaitTime), QVariant(1000U));
    expectExactly(read(keys::enableCheckGain), QVariant(true));
    expectExactly(read(keys::enableCheckExposureTime), QVariant(true));
    expectExactly(read(keys::frameRate), QVariant(0.0));

    camera.m_auxParameter = -1;
    camera.m_grabTimeout = -2;
    camera.m_gainReadBack = false;
    camera.m_exposureReadBack = false;
    camera.m_frameRate = 24.5;
    expectExactly(read(keys::capturePeriod), QVariant(0xffffffffU));
    expectExactly(read(keys::maxGrabWaitTime), QVariant(0xfffffffeU));
    expectExactly(read(keys::enableCheckGain), QVariant(false));
    expectExactly(read(keys::enableCheckExposureTime), QVariant(false));
    expectExactly(read(keys::frameRate), QVariant(24.5));
    EXPECT_THAT(bus.callTexts(), IsEmpty());

    camera.m_gainReadBack = true;
    expectExactly(read(keys::enableCheckGain), QVariant(true));
    expectExactly(read(keys::enableCheckExposureTime), QVariant(false));
}

TEST_F(PropertiesRead, TheSensorClassFollowsTheType)
{
    connect(2, 8, 4);
    for (const int type : everySensor()) {
        camera.m_sensorType = type;
        expectExactly(read(keys::sensorCount), QVariant(sensorTypeOf(type).sensorCount));
    }
}

TEST_F(PropertiesRead, TheSerialNumberHasItsPrefix)
{
    connect(2, 8, 4);
    expectExactly(read(keys::serial), QVariant("ZR4711"));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    camera.m_currentNode->serial.clear();
    EXPECT_EQ(refused(keys::serial), 779U);
}

TEST_P(ControlKeys, ReadTheirControl)
{
    const ControlKey& key = GetParam();
    Camera& device = connect(2, 8, 4);
    for (const int value :
         {0, 255, 32767, key.isSigned ? -32768 : 65535, key.isSigned ? -1 : 32768}) {
        device[key.control].current = value;
        expectExactly(read(key.key), QVariant(value));
    }
    EXPECT_EQ(bus.callTexts().front(), std::string(key.getter) + " handle1 GET_CUR");
    EXPECT_EQ(bus.calls().size(), 5U);

    log.clear();
    bus.fail({key.getter, UVC_ERROR_PIPE});
    EXPECT_EQ(refused(key.key), 779U);
    EXPECT_THAT(log.lines(QtCriticalMsg), IsEmpty());
}

TEST_P(ControlKeys, HoldNoLockWhileTheyRead)
{
    connect(2, 8, 4);
    // The control mutex is not taken here.
    bus.setHook([this](const fakeuvc::Call& call) {
        EXPECT_TRUE(camera.m_controlMutex.tryLock()) << call.text;
        camera.m_controlMutex.unlock();
        const bool writable = camera.m_nodeLock.tryLockForWrite();
        EXPECT_TRUE(writable) << call.text;
        if (writable) {
            camera.m_nodeLock.unlock();
        }
    });
    read(GetParam().key);
    EXPECT_EQ(bus.calls().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    EveryControl, ControlKeys,
    testing::Values(ControlKey{keys::sharp, Control::Sharpness, "uvc_get_sharpness", false},
                    ControlKey{keys::gamma, Control::Gamma, "uvc_get_gamma", false},
                    ControlKey{keys::hue, Control::Hue, "uvc_get_hue", true}),
    [](const auto& test) { return std::string(test.param.key); });

TEST_F(PropertiesRead, ColourGainsAreBytesOfThePackedWord)
{
    Camera& device = connect(2, 8, 4);
    expectExactly(read(keys::rGain), QVariant(10));
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_get_gamma handle1 GET_CUR", "uvc_get_sharpness handle1 GET_CUR",
                            "uvc_get_hue handle1 GET_CUR", "uvc_get_saturation handle1 GET_CUR"));
    expectExactly(read(keys::grGain), QVariant(20));
    expectExactly(read(keys::gbGain), QVariant(30));
    expectExactly(read(keys::bGain), QVariant(40));

    // Spilt bits and hue signs count.
    device[Control::Gamma].current = 0x0100;
    device[Control::Hue].current = -1;
    expectExactly(read(keys::rGain), QVariant(0));
    expectExactly(read(keys::grGain), QVariant(21));
    expectExactly(read(keys::gbGain), QVariant(255));
    expectExactly(read(keys::bGain), QVariant(255));

    bus.fail({"uvc_get_gamma", UVC_ERROR_PIPE});
    for (const char* key : {keys::rGain, keys::grGain, keys::gbGain, keys::bGain}) {
        EXPECT_EQ(refused(key), 779U);
    }
}

TEST_F(PropertiesRead, TheDeviceStatusIsARecord)
{
    connect(2, 8, 4);
    camera.m_frameRate = 12.5;
    expectExactly(read(keys::heartBeat), Values{{"ONLINE", true}, {"FEAMERATE", 12.5}});
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_get_gain handle1 GET_CUR"));
    bus.fail({"uvc_get_gain", UVC_ERROR_NO_DEVICE});
    const QVariant status = read(keys::heartBeat);
    expectExactly(status, Values{{"ONLINE", false}, {"FEAMERATE", 12.5}});
    EXPECT_STREQ(status.toMap()["ONLINE"].typeName(), "bool");
    EXPECT_STREQ(status.toMap()["FEAMERATE"].typeName(), "double");
}

TEST_F(PropertiesRead, TheDeviceStatusAsksTheVirtualGain)
{
    class Overriding : public CameraProbe
    {
    public:
        ErrorCode getGain(unsigned short& /*value*/, signed char selector) override
        {
            m_selectors.push_back(selector);
            return ErrorCode::GainReadFailed;
        }
        std::vector<int> m_selectors;
    };
    Overriding overriding;
    connect(overriding, 2, 8, 4);
    Values values;
    EXPECT_EQ(code(overriding.getProperty(keys::heartBeat, values)), 0U);
    EXPECT_EQ(values["value"].toMap()["ONLINE"], QVariant(false));
    EXPECT_THAT(overriding.m_selectors, ElementsAre(0));
}

TEST_F(PropertiesRead, TheCacheSizeIsRefusedWhileStreaming)
{
    connect(2, 8, 4);
    camera.m_cacheFrameCount = 33;
    expectExactly(read(keys::cacheFrameCount), QVariant(33));
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(refused(keys::cacheFrameCount), 779U);
    camera.stopStream(0);
    expectExactly(read(keys::cacheFrameCount), QVariant(33));
}

TEST_F(PropertiesRead, TheResolutionListSucceedsOnlyWithoutSizes)
{
    Camera& device = connect(2, 8, 4);
    EXPECT_EQ(refused(keys::resolutionList), 779U);
    device.formats = {{UVC_VS_FORMAT_MJPEG, {{8, 4}}}};
    const QVariant list = read(keys::resolutionList);
    EXPECT_STREQ(list.typeName(), "QVariantMap");
    ASSERT_EQ(list.toMap().size(), 2);
    for (const char* entry : {"WIDTHS", "HEIGHTS"}) {
        EXPECT_STREQ(list.toMap()[entry].typeName(), "QList<int>");
        EXPECT_THAT(list.toMap()[entry].value<QList<int>>(), IsEmpty());
    }
    device.formats.clear();
    EXPECT_EQ(refused(keys::resolutionList), 779U);
}

TEST_F(PropertiesRead, TheResolutionIndexIsThePosition)
{
    Camera& device = connect(2, 8, 4);
    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{16, 8}, {32, 8}, {8, 4}}}};
    expectExactly(read(keys::resolutionIndex), QVariant(2));
    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{16, 8}}}};
    EXPECT_EQ(refused(keys::resolutionIndex), 779U);
}

TEST_F(PropertiesRead, AClosedCameraFailsWhatNeedsTheDevice)
{
    connect(2, 8, 4);
    CZRNCamera::closeSpecifedDevice(camera.m_currentNode);
    clearLogs();
    for (const char* key : {keys::sharp, keys::gamma, keys::hue, keys::rGain, keys::resolutionList,
                            keys::resolutionIndex}) {
        EXPECT_EQ(refused(key), 779U) << key;
    }
    EXPECT_EQ(read(keys::heartBeat).toMap()["ONLINE"], QVariant(false));
    expectExactly(read(keys::serial), QVariant("ZR4711"));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}
