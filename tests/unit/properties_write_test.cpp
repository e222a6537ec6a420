// Writing properties by their keys.

#include "client/property_table.h"
#include "driver_test.h"
#include "stdout_capture.h"

#include <QVariant>

#include <limits>

using fakeuvc::Camera;
using fakeuvc::Control;
using testing::ElementsAre;
using testing::IsEmpty;
using zrn::PropertyInfo;

namespace keys = zrn::keys;

using Values = QMap<QString, QVariant>;

namespace
{

/// What a refused write must leave as it was.
struct Settings {
    int auxParameter;
    int grabTimeout;
    int cacheFrameCount;
    bool gainReadBack;
    bool exposureReadBack;
    int gamma, sharpness, hue, saturation;

    friend bool operator==(const Settings&, const Settings&) = default;
};

class PropertiesWrite : public DriverTest
{
protected:
    Camera& connectCamera()
    {
        m_device = &connect(2, 8, 4);
        camera.m_grabTimeout = 1;
        return *m_device;
    }
    unsigned write(const QString& key, const QVariant& value)
    {
        return code(camera.setProperty(key, {{"other", "ignored"}, {"value", value}}));
    }
    Settings settings()
    {
        Camera& device = *m_device;
        return {camera.m_auxParameter,
                camera.m_grabTimeout,
                camera.m_cacheFrameCount,
                camera.m_gainReadBack,
                camera.m_exposureReadBack,
                device[Control::Gamma].current,
                device[Control::Sharpness].current,
                device[Control::Hue].current,
                device[Control::Saturation].current};
    }

private:
    Camera* m_device = nullptr;
};

struct WrittenKey {
    const char* text;
    bool isFlag;
};

class WritableKeys : public PropertiesWrite, public testing::WithParamInterface<WrittenKey>
{
};

void PrintTo(const WrittenKey& key, std::ostream* stream)
{
    *stream << key.text;
}

struct WritableControl {
    const char* key;
    const char* setter;
    bool isSigned;
};

class WritableControls : public PropertiesWrite, public testing::WithParamInterface<WritableControl>
{
};

void PrintTo(const WritableControl& control, std::ostream* stream)
{
    *stream << control.key;
}

} // namespace

TEST_F(PropertiesWrite, WithoutACameraEveryWriteAnswersSo)
{
    for (const PropertyInfo& property : zrn::propertyTable) {
        EXPECT_EQ(write(property.key, 1), 512U) << property.key;
        EXPECT_EQ(code(camera.setProperty(property.key, {})), 512U) << property.key;
    }
    EXPECT_EQ(write("unknown", 1), 512U);
    EXPECT_EQ(camera.m_auxParameter, 10);
    EXPECT_EQ(camera.m_grabTimeout, 1000);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PropertiesWrite, AMissingValueIsFoundBeforeTheKey)
{
    connectCamera();
    const Settings before = settings();
    for (const PropertyInfo& property : zrn::propertyTable) {
        EXPECT_EQ(code(camera.setProperty(property.key, {})), 780U) << property.key;
        EXPECT_EQ(code(camera.setProperty(property.key, {{"Value", 1}, {"values", 2}})), 780U)
            << property.key;
    }
    EXPECT_EQ(code(camera.setProperty("unknown", {})), 780U);
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(PropertiesWrite, UnknownAndReadOnlyKeysAreNotSupported)
{
    connectCamera();
    const Settings before = settings();
    for (const PropertyInfo& property : zrn::propertyTable) {
        const unsigned refusal = property.writable ? 779U : 775U;
        EXPECT_EQ(write(property.key, "text"), refusal) << property.key;
        if (!property.writable) {
            EXPECT_EQ(write(property.key, 1), refusal) << property.key;
        }
    }
    for (const char* key : {"", "unknown", "gamma", "Gamma ", "ClearState"}) {
        EXPECT_EQ(write(key, 1), 775U) << key;
    }
    EXPECT_EQ(write(QString("Gam") + QChar(0x43c) + "a", 1), 775U);
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_P(WritableKeys, AcceptTheirTypesOnly)
{
    connectCamera();
    const Settings before = settings();
    std::vector<QVariant> refusals = {QVariant(),
                                      QVariant(12.0),
                                      QVariant(12.0F),
                                      QVariant("12"),
                                      QVariant(qint64{12}),
                                      QVariant(quint64{12}),
                                      QVariant(QByteArray("12")),
                                      QVariant(Values{}),
                                      QVariant(QChar('1')),
                                      QVariant(QVariantList{12}),
                                      QVariant::fromValue<short>(12),
                                      QVariant::fromValue<long>(12)};
    if (!GetParam().isFlag) {
        refusals.emplace_back(true);
    }
    for (const QVariant& value : refusals) {
        EXPECT_EQ(write(GetParam().text, value), 779U)
            << (value.isValid() ? value.typeName() : "invalid");
    }
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(WritableKeys, AreKnownUpToTheirFirstNul)
{
    connectCamera();
    const QString key = QString::fromLatin1(GetParam().text) + QChar(0) + "rest";
    EXPECT_EQ(write(key, "wrong type"), 779U);
}

INSTANTIATE_TEST_SUITE_P(
    EveryKey, WritableKeys,
    testing::Values(WrittenKey{keys::capturePeriod, false}, WrittenKey{keys::bGain, false},
                    WrittenKey{keys::enableCheckGain, true},
                    WrittenKey{keys::enableCheckExposureTime, true},
                    WrittenKey{keys::cacheFrameCount, false},
                    WrittenKey{keys::resolutionIndex, false},
                    WrittenKey{keys::maxGrabWaitTime, false}, WrittenKey{keys::sharp, false},
                    WrittenKey{keys::gbGain, false}, WrittenKey{keys::rGain, false},
                    WrittenKey{keys::grGain, false}, WrittenKey{keys::gamma, false},
                    WrittenKey{keys::hue, false}),
    [](const auto& test) { return std::string(test.param.text); });

TEST_F(PropertiesWrite, IntegerFieldsTakeIntAndUnsigned)
{
    connectCamera();
    EXPECT_EQ(write(keys::capturePeriod, 77), 0U);
    EXPECT_EQ(camera.m_auxParameter, 77);
    EXPECT_EQ(write(keys::capturePeriod, 78U), 0U);
    EXPECT_EQ(camera.m_auxParameter, 78);
    EXPECT_EQ(write(keys::capturePeriod, -5), 0U);
    EXPECT_EQ(camera.m_auxParameter, -5);
    EXPECT_EQ(write(keys::capturePeriod, 0xfffffffeU), 0U);
    EXPECT_EQ(camera.m_auxParameter, -2);

    for (const int timeout :
         {0, -1, 5, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(write(keys::maxGrabWaitTime, timeout), 0U);
        EXPECT_EQ(camera.m_grabTimeout, timeout);
    }
    EXPECT_EQ(write(keys::maxGrabWaitTime, 250U), 0U);
    EXPECT_EQ(camera.m_grabTimeout, 250);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PropertiesWrite, FlagsTakeBoolsAndIntegers)
{
    connectCamera();
    for (const QVariant& value : {QVariant(false), QVariant(0), QVariant(0U)}) {
        camera.m_gainReadBack = true;
        camera.m_exposureReadBack = true;
        EXPECT_EQ(write(keys::enableCheckGain, value), 0U);
        EXPECT_FALSE(camera.m_gainReadBack);
        EXPECT_TRUE(camera.m_exposureReadBack);
        EXPECT_EQ(write(keys::enableCheckExposureTime, value), 0U);
        EXPECT_FALSE(camera.m_exposureReadBack);
    }
    for (const QVariant& value :
         {QVariant(true), QVariant(1), QVariant(-7), QVariant(0x80000000U)}) {
        camera.m_gainReadBack = false;
        camera.m_exposureReadBack = false;
        EXPECT_EQ(write(keys::enableCheckGain, value), 0U);
        EXPECT_TRUE(camera.m_gainReadBack);
        EXPECT_FALSE(camera.m_exposureReadBack);
        EXPECT_EQ(write(keys::enableCheckExposureTime, value), 0U);
        EXPECT_TRUE(camera.m_exposureReadBack);
    }
}

TEST_P(WritableControls, WriteTheLowSixteenBitsOnce)
{
    connectCamera();
    const WritableControl& key = GetParam();
    EXPECT_EQ(write(key.key, 12), 0U);
    EXPECT_EQ(write(key.key, 13U), 0U);
    EXPECT_EQ(write(key.key, 70000), 0U);
    EXPECT_EQ(write(key.key, 65535), 0U);
    EXPECT_EQ(write(key.key, -2), 0U);
    const std::string call = std::string(key.setter) + " handle1 ";
    EXPECT_THAT(bus.callTexts(), ElementsAre(call + "12", call + "13", call + "4464",
                                             call + (key.isSigned ? "-1" : "65535"),
                                             call + (key.isSigned ? "-2" : "65534")));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(WritableControls, ReportAFailure)
{
    connectCamera();
    const Settings before = settings();
    bus.fail({GetParam().setter, UVC_ERROR_PIPE});
    EXPECT_EQ(write(GetParam().key, 12), 779U);
    EXPECT_EQ(bus.calls().size(), 1U);
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EveryControl, WritableControls,
                         testing::Values(WritableControl{keys::sharp, "uvc_set_sharpness", false},
                                         WritableControl{keys::gamma, "uvc_set_gamma", false},
                                         WritableControl{keys::hue, "uvc_set_hue", true}),
                         [](const auto& test) { return std::string(test.param.key); });

TEST_F(PropertiesWrite, OneColourGainRewritesTheOthersAsRead)
{
    Camera& device = connectCamera();
    const std::vector<std::pair<const char*, Control>> bytes = {{keys::rGain, Control::Gamma},
                                                                {keys::grGain, Control::Sharpness},
                                                                {keys::gbGain, Control::Hue},
                                                                {keys::bGain, Control::Saturation}};
    int value = 100;
    for (const auto& [key, control] : bytes) {
        Settings expected = settings();
        (control == Control::Gamma       ? expected.gamma
         : control == Control::Sharpness ? expected.sharpness
         : control == Control::Hue       ? expected.hue
                                         : expected.saturation) = value;
        clearLogs();
        EXPECT_EQ(write(key, value), 0U) << key;
        EXPECT_EQ(settings(), expected) << key;
        EXPECT_EQ(bus.calls().size(), 8U);
        ++value;
    }
    EXPECT_EQ(write(keys::rGain, 0x1ff), 0U);
    EXPECT_EQ(device[Control::Gamma].current, 255);
    EXPECT_EQ(write(keys::gbGain, 250U), 0U);
    EXPECT_EQ(device[Control::Hue].current, 250);
}

TEST_F(PropertiesWrite, AColourGainFailsWithItsGammaAccess)
{
    connectCamera();
    const Settings before = settings();
    const std::vector<const char*> bytes = {keys::rGain, keys::grGain, keys::gbGain, keys::bGain};
    bus.fail({"uvc_set_gamma", UVC_ERROR_PIPE});
    for (const char* key : bytes) {
        EXPECT_EQ(write(key, 1), 779U) << key;
    }
    bus.fail({"uvc_get_gamma", UVC_ERROR_PIPE});
    for (const char* key : bytes) {
        clearLogs();
        EXPECT_EQ(write(key, 1), 779U) << key;
        EXPECT_EQ(bus.calls().size(), 1U);
    }
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PropertiesWrite, TheCacheSizeIsWrittenWhileStopped)
{
    connectCamera();
    camera.m_frameIndexQueue.append(1);
    EXPECT_EQ(write(keys::cacheFrameCount, 16), 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(1));

    EXPECT_EQ(write(keys::cacheFrameCount, 20U), 0U);
    EXPECT_EQ(camera.m_cacheFrameCount, 20);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{QtDebugMsg, "default", " flag: false"}));
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    EXPECT_THAT(camera.m_frameBuffers, IsEmpty());

    const Settings before = settings();
    for (const QVariant& value : {QVariant(0), QVariant(-1), QVariant(0x80000000U)}) {
        EXPECT_EQ(write(keys::cacheFrameCount, value), 779U);
    }
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(write(keys::cacheFrameCount, 4), 779U);
    EXPECT_EQ(write(keys::cacheFrameCount, 20), 779U);
    EXPECT_EQ(settings(), before);
}

TEST_F(PropertiesWrite, TheResolutionIndexCanNeverBeWritten)
{
    connectCamera();
    const Settings before = settings();
    const StdoutCapture output;
    EXPECT_EQ(write(keys::resolutionIndex, 0), 779U);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(write(keys::resolutionIndex, 3U), 779U);
    EXPECT_EQ(output.text(), "camera not start stream\nselect camera resolution to 3 failed\n");
    EXPECT_EQ(settings(), before);
    EXPECT_EQ(camera.m_imageWidth, 8);
    EXPECT_TRUE(camera.m_isStreaming);
}

TEST_F(PropertiesWrite, AClosedCameraFailsWhatNeedsTheDevice)
{
    connectCamera();
    CZRNCamera::closeSpecifedDevice(camera.m_currentNode);
    clearLogs();
    const Settings before = settings();
    for (const char* key :
         {keys::sharp, keys::gamma, keys::hue, keys::rGain, keys::bGain, keys::resolutionIndex}) {
        EXPECT_EQ(write(key, 1), 779U) << key;
    }
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(write(keys::capturePeriod, 1), 0U);
}

TEST_F(PropertiesWrite, WhatIsWrittenIsRead)
{
    connectCamera();
    const std::vector<std::pair<const char*, QVariant>> writes = {
        {keys::capturePeriod, 123U},
        {keys::enableCheckGain, false},
        {keys::enableCheckExposureTime, false},
        {keys::cacheFrameCount, 5},
        {keys::maxGrabWaitTime, 44U},
        {keys::sharp, 61000},
        {keys::rGain, 9},
        {keys::gamma, 300},
        {keys::hue, -300},
    };
    for (const auto& [key, value] : writes) {
        ASSERT_EQ(write(key, value), 0U) << key;
        Values values;
        ASSERT_EQ(code(camera.getProperty(key, values)), 0U) << key;
        EXPECT_EQ(values["value"], value) << key;
    }
}
