#include "model/camera_config.h"
#include "pictures/sensor_types.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace zrnsim
{
namespace
{

std::string errorOf(const std::string& text)
{
    try {
        parseCamera(text, 1);
    } catch (const ConfigError& error) {
        return error.what();
    }
    return {};
}

TEST(CameraPresets, CoverEverySensorTypeAndBothDoubleSensors)
{
    std::set<std::string> models;
    for (const CameraConfig& preset : cameraPresets()) {
        models.insert(preset.model);
        EXPECT_FALSE(preset.summary.empty()) << preset.model;
    }
    std::set<std::string> expected{"double-1308x1991", "double-640x960"};
    for (const SensorType& sensor : sensorTypes) {
        expected.insert("type" + std::to_string(sensor.number));
    }
    EXPECT_EQ(models, expected);
}

TEST(CameraPresets, DoubleSensorsListTheirStreamedSizeInEightBits)
{
    const CameraConfig large = parseCamera("double-1308x1991", 1);
    EXPECT_EQ(large.sizes, (std::vector<FrameSize>{{1308, 1991}, {2616, 1991}}));
    EXPECT_EQ(large.formats, std::vector{PixelPacking::Y800});
    const CameraConfig small = parseCamera("double-640x960", 1);
    EXPECT_EQ(small.sizes, (std::vector<FrameSize>{{640, 960}, {1280, 1024}}));
    EXPECT_EQ(small.formats, std::vector{PixelPacking::Y800});
}

TEST(CameraPresets, DefaultsLieInTheirRanges)
{
    for (const CameraConfig& preset : cameraPresets()) {
        for (const ControlId id : {ControlId::Brightness, ControlId::Gain, ControlId::Hue,
                                   ControlId::Saturation, ControlId::Sharpness, ControlId::Gamma}) {
            const ControlValues& values = preset.controls[id];
            EXPECT_LT(values.min, values.max) << preset.model;
            EXPECT_LE(values.min, values.def) << preset.model;
            EXPECT_LE(values.def, values.max) << preset.model;
            EXPECT_EQ(values.cur, values.def) << preset.model;
        }
    }
}

TEST(CameraPresets, HundredPayloadsFitIntoTheUsualTransferMemory)
{
    for (const CameraConfig& preset : cameraPresets()) {
        EXPECT_LE(100U * preset.payloadSize, 16U << 20U) << preset.model;
    }
}

TEST(ParseCamera, GivesEachCameraItsOwnSerial)
{
    std::set<std::uint64_t> serials;
    for (const CameraConfig& preset : cameraPresets()) {
        for (unsigned ordinal = 1; ordinal <= 4; ++ordinal) {
            serials.insert(parseCamera(preset.model, ordinal).serial);
        }
    }
    EXPECT_EQ(serials.size(), 4 * cameraPresets().size());
}

TEST(ParseCamera, PutsSerialAndSensorTypeOnTheirCarriers)
{
    const CameraConfig config = parseCamera("type0,serial=0x1122334455667788,sensor=14", 3);
    const ControlValues& serial = config.controls[ControlId::BacklightCompensation];
    EXPECT_EQ(serial.cur, 0x7788);
    EXPECT_EQ(serial.min, 0x5566);
    EXPECT_EQ(serial.max, 0x3344);
    EXPECT_EQ(serial.def, 0x1122);
    EXPECT_EQ(config.controls[ControlId::Contrast].cur, 14);
}

TEST(ParseCamera, TakesTheWholeSixtyFourBitsOfASerial)
{
    EXPECT_EQ(parseCamera("type1,serial=18446744073709551615", 1).serial, ~std::uint64_t{0});
    EXPECT_EQ(parseCamera("type1,serial=0", 1).serial, 0U);
}

TEST(ParseCamera, ReadsEveryKey)
{
    const CameraConfig config = parseCamera(
        "type2,sizes=64x48+8x4,formats=y800+yuy2,rates=12.5+50,rate=0,pipe=iso,speed=super,"
        "payload=2048,vendor=0x1234,product=7,brightness=-5:5:1:2:3,gain=1:10:4",
        1);
    EXPECT_EQ(config.sizes, (std::vector<FrameSize>{{64, 48}, {8, 4}}));
    EXPECT_EQ(config.formats, (std::vector{PixelPacking::Y800, PixelPacking::Yuy2}));
    EXPECT_EQ(config.frameRates, (std::vector{12.5, 50.0}));
    EXPECT_EQ(config.productionRate, 0.0);
    EXPECT_EQ(config.pipe, StreamPipe::Isochronous);
    EXPECT_EQ(config.speed, UsbSpeed::Super);
    EXPECT_EQ(config.payloadSize, 2048U);
    EXPECT_EQ(config.vendorId, 0x1234);
    EXPECT_EQ(config.productId, 7);
    const ControlValues& exposure = config.controls[ControlId::Brightness];
    EXPECT_EQ(exposure.min, -5);
    EXPECT_EQ(exposure.max, 5);
    EXPECT_EQ(exposure.def, 1);
    EXPECT_EQ(exposure.cur, 2);
    EXPECT_EQ(exposure.res, 3);
    EXPECT_EQ(config.controls[ControlId::Gain].cur, 4);
}

TEST(ParseCamera, IsochronousCamerasAreHighSpeedUnlessToldOtherwise)
{
    EXPECT_EQ(parseCamera("type0", 1).speed, UsbSpeed::Super);
    const CameraConfig iso = parseCamera("type0,pipe=iso", 1);
    EXPECT_EQ(iso.speed, UsbSpeed::High);
    EXPECT_EQ(iso.payloadSize, 3072U);
}

TEST(ParseCamera, NamesWhatIsWrong)
{
    EXPECT_NE(errorOf("type99").find("'type99'"), std::string::npos);
    EXPECT_NE(errorOf("type1,colour=3").find("colour"), std::string::npos);
    EXPECT_NE(errorOf("type1,serial").find("KEY=VALUE"), std::string::npos);
    for (const char* const wrong : {"serial=",
                                    "serial=-1",
                                    "serial=18446744073709551616",
                                    "serial=12x",
                                    "sensor=65536",
                                    "sizes=640",
                                    "sizes=640x",
                                    "sizes=640x480+",
                                    "sizes=65536x1",
                                    "formats=mjpeg",
                                    "rates=0",
                                    "rates=nan",
                                    "rate=-1",
                                    "pipe=interrupt",
                                    "speed=full",
                                    "payload=15",
                                    "gain=1:2",
                                    "gain=1:2:3:4:5:6",
                                    "gain=-1:2:1",
                                    "brightness=0:32768:0",
                                    "vendor=65536"}) {
        EXPECT_FALSE(errorOf(std::string("type1,") + wrong).empty()) << wrong;
    }
}

TEST(ParseCamera, RefusesPacketsThatAnIsochronousEndpointCannotCarry)
{
    EXPECT_FALSE(errorOf("type0,pipe=iso,payload=3073").empty());
    EXPECT_TRUE(errorOf("type0,pipe=iso,payload=3072").empty());
    EXPECT_TRUE(errorOf("type0,pipe=iso,speed=super,payload=49152").empty());
}

TEST(ParseCamera, RefusesListsThatDescriptorsCannotHold)
{
    std::string sizes = "type0,sizes=2x2";
    std::string rates = "type0,rates=1";
    for (int i = 0; i < 256; ++i) {
        sizes += "+2x2";
        rates += "+1";
    }
    EXPECT_FALSE(errorOf(sizes).empty());
    EXPECT_FALSE(errorOf(rates).empty());
}

} // namespace
} // namespace zrnsim
