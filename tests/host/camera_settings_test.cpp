#include "common/camera_settings.h"

#include <gtest/gtest.h>

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
