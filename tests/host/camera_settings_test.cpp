#include "common/camera_settings.h"
#include "scripted_driver.h"

#include <gmock/gmock.h>

using namespace zrnhost;

namespace
{

std::string refusalOf(const QByteArray& json)
{
    try {
        settingsFromJson(json);
        return {};
    } catch (const SettingsError& error) {
        return error.what();
    }
}

QByteArray withEntry(const QByteArray& entry)
{
    return R"({"format": "zrncam-settings", "version": 1, )" + entry + "}";
}

} // namespace

TEST(CameraSettingsTest, ADocumentGivesBackWhatItHolds)
{
    CameraSettings settings;
    settings.serial = "ZR18446744073709551615";
    settings.exposure = std::chrono::microseconds(4294967295);
    settings.gain = 65535;
    settings.properties = {{"BGain", 255}, {"Hue", -32768}};
    const CameraSettings read = settingsFromJson(toJson(settings));
    EXPECT_EQ(read.serial, settings.serial);
    EXPECT_EQ(read.exposure, settings.exposure);
    EXPECT_EQ(read.gain, settings.gain);
    EXPECT_EQ(read.properties, settings.properties);

    const CameraSettings nothing = settingsFromJson(withEntry(R"("serial": "")"));
    EXPECT_FALSE(nothing.exposure || nothing.gain);
    EXPECT_TRUE(nothing.properties.empty());
}

TEST(CameraSettingsTest, WhatIsNoSettingIsRefusedByName)
{
    EXPECT_EQ(refusalOf("{}"), "it holds no camera settings");
    EXPECT_EQ(refusalOf("{\"format"), "it holds no camera settings: unterminated string at byte 9");
    EXPECT_EQ(refusalOf(R"({"format": "zrncam-settings", "version": 2})"), "its version is not 1");
    EXPECT_EQ(refusalOf(withEntry(R"("gain": 65536)")),
              "gain is not a whole number from 0 to 65535");
    EXPECT_EQ(refusalOf(withEntry(R"("gain": "12")")),
              "gain is not a whole number from 0 to 65535");
    EXPECT_EQ(refusalOf(withEntry(R"("exposureMicroseconds": 0.5)")),
              "exposureMicroseconds is not a whole number from 0 to 4294967295");
    EXPECT_EQ(refusalOf(withEntry(R"("colour": 1)")), "colour is no setting of a camera");
    EXPECT_EQ(refusalOf(withEntry(R"("properties": 3)")), "properties is not an object");
    EXPECT_EQ(refusalOf(withEntry(R"("properties": {"Gamma": 70000})")),
              "Gamma is not a whole number from 0 to 65535");
    for (const char* key : {"MaxGrabWaitTime", "Serial", "Nonsense"}) {
        EXPECT_EQ(refusalOf(withEntry("\"properties\": {\"" + QByteArray(key) + "\": 1}")),
                  std::string(key) + " is no setting of a camera");
    }
}

class CameraSettingsApplied : public testing::Test
{
protected:
    void SetUp() override
    {
        settings.exposure = std::chrono::microseconds(2345);
        settings.gain = 7;
        settings.properties = {{"Gamma", 4660}};
    }

    const std::shared_ptr<ScriptedDevice> device =
        std::make_shared<ScriptedDevice>(QStringLiteral("ZR1"));
    const std::shared_ptr<zrn::Camera> camera =
        zrn::Camera::open(ScriptedFactory::driverFor({device}));
    CameraSettings settings;
};

TEST_F(CameraSettingsApplied, WhatTheCameraRoundsIsTold)
{
    EXPECT_EQ(applySettings(settings, *camera),
              QStringList{"exposure: the camera has made 2300 us of 2345 us"});
    settings.exposure = std::chrono::microseconds(2300);
    EXPECT_EQ(applySettings(settings, *camera), QStringList());
}

TEST_F(CameraSettingsApplied, NothingIsSetWhenOneIsOutsideOfItsRange)
{
    const auto refusal = [this](const CameraSettings& wanted) -> std::string {
        try {
            applySettings(wanted, *camera);
            return "none";
        } catch (const SettingsError& error) {
            return error.what();
        }
    };
    const CameraSettings before = settingsOf(*camera);
    CameraSettings wrong = settings;
    wrong.gain = 65;
    EXPECT_EQ(refusal(wrong), "gain 65 is not from 1 to 64, which this camera allows");
    wrong = settings;
    wrong.exposure = std::chrono::microseconds(0);
    EXPECT_THAT(refusal(wrong), testing::StartsWith("exposure 0 us is not from "));
    wrong = settings;
    wrong.properties["BGain"] = 256;
    EXPECT_EQ(refusal(wrong), "BGain is not a whole number from 0 to 255");
    EXPECT_EQ(toJson(settingsOf(*camera)), toJson(before));
}

TEST_F(CameraSettingsApplied, AFailureNamesWhatWasSetBefore)
{
    device->gainAnswer = ErrorCode::GainWriteFailed;
    try {
        applySettings(settings, *camera);
        FAIL() << "the gain was refused";
    } catch (const zrn::Error& error) {
        EXPECT_EQ(error.code(), ErrorCode::GainWriteFailed);
        EXPECT_THAT(error.what(), testing::HasSubstr(" (set before it: Gamma, exposure): "));
    }
    EXPECT_EQ(camera->exposure().count(), 2300);
}
