#include "model/control_engine.h"

#include <gtest/gtest.h>

#include <optional>

namespace zrnsim
{
namespace
{

constexpr std::uint8_t toHost = 0x80;
constexpr std::uint8_t classToHost = 0xa1;
constexpr std::uint8_t classToDevice = 0x21;

std::uint16_t address(ControlId id)
{
    return static_cast<std::uint16_t>(traitsOf(id).entity << 8U);
}

std::uint16_t selector(ControlId id)
{
    return static_cast<std::uint16_t>(traitsOf(id).selector << 8U);
}

class ControlEngineTest : public testing::Test
{
protected:
    explicit ControlEngineTest(const std::string& camera = "type2,serial=0x0123456789abcdef")
        : config(parseCamera(camera, 1))
        , engine(config)
    {
    }

    ControlResult request(const SetupPacket& setup, const Bytes& out = {})
    {
        return engine.handle(setup, out);
    }

    /// GET request to a unit control; nothing when it was refused.
    std::optional<std::uint32_t> get(ControlId id, std::uint8_t code)
    {
        const ControlResult result = request({classToHost, code, selector(id), address(id), 2});
        if (result.status != ControlStatus::Done) {
            return std::nullopt;
        }
        return readLittleEndian(result.data, 0, 2);
    }

    bool set(ControlId id, std::uint32_t value)
    {
        Bytes data;
        ByteWriter(data).u16(value);
        data.resize(traitsOf(id).length);
        const auto length = static_cast<std::uint16_t>(data.size());
        return request({classToDevice, uvc::setCur, selector(id), address(id), length}, data)
                   .status == ControlStatus::Done;
    }

    std::uint8_t errorCode()
    {
        const ControlResult result = request({classToHost, uvc::getCur, 0x0200, 0x0000, 1});
        EXPECT_EQ(result.status, ControlStatus::Done);
        return result.data.at(0);
    }

    ControlResult stream(std::uint8_t type, std::uint8_t code, std::uint8_t control,
                         const Bytes& out = {})
    {
        return request(
            {type, code, static_cast<std::uint16_t>(control << 8U), 1, StreamParameters::wireSize},
            out);
    }

    CameraConfig config;
    ControlEngine engine;
};

TEST_F(ControlEngineTest, AnswersDescriptorsCutToTheLengthAskedFor)
{
    const auto descriptor = [&](unsigned type, std::uint16_t length) {
        return request(
            {toHost, usb::getDescriptor, static_cast<std::uint16_t>(type << 8U), 0, length});
    };
    EXPECT_EQ(descriptor(usb::descriptorDevice, 64).data, engine.descriptors().device);
    EXPECT_EQ(descriptor(usb::descriptorDevice, 8).data.size(), 8U);
    EXPECT_EQ(descriptor(usb::descriptorConfiguration, 9).data.size(), 9U);
    EXPECT_EQ(descriptor(usb::descriptorConfiguration, 4096).data,
              engine.descriptors().configuration);
    EXPECT_EQ(descriptor(usb::descriptorBos, 64).data, engine.descriptors().bos);
    EXPECT_EQ(descriptor(usb::descriptorDeviceQualifier, 10).status, ControlStatus::Stalled);
    EXPECT_EQ(descriptor(0x0a, 64).status, ControlStatus::Stalled);
    EXPECT_EQ(request({toHost, usb::getDescriptor, 0x0201, 0, 64}).status, ControlStatus::Stalled);
    EXPECT_EQ(request({toHost, usb::getDescriptor, 0x0309, 0x0409, 255}).status,
              ControlStatus::Stalled);
}

TEST_F(ControlEngineTest, AnswersStandardRequests)
{
    EXPECT_EQ(request({toHost, usb::getStatus, 0, 0, 2}).data, (Bytes{0, 0}));
    EXPECT_EQ(request({toHost, usb::getConfiguration, 0, 0, 1}).data, Bytes{1});
    EXPECT_EQ(request({0x81, usb::getInterface, 0, 1, 1}).data, Bytes{0});
    EXPECT_EQ(request({0x81, usb::getInterface, 0, 2, 1}).status, ControlStatus::Stalled);
    EXPECT_EQ(request({0x01, usb::setInterface, 0, 1, 0}).status, ControlStatus::Done);
    EXPECT_EQ(request({0x01, usb::setInterface, 1, 1, 0}).status, ControlStatus::Stalled);
    EXPECT_EQ(request({0x00, usb::setConfiguration, 2, 0, 0}).status, ControlStatus::Stalled);
    EXPECT_EQ(request({toHost, 0x77, 0, 0, 0}).status, ControlStatus::Stalled);
}

TEST_F(ControlEngineTest, HaltLastsUntilTheHostClearsIt)
{
    const SetupPacket status{0x82, usb::getStatus, 0, 0x81, 2};
    engine.haltEndpoint();
    EXPECT_EQ(request(status).data, (Bytes{1, 0}));
    const ControlResult cleared =
        request({0x02, usb::clearFeature, usb::featureEndpointHalt, 0x81, 0});
    EXPECT_EQ(cleared.status, ControlStatus::Done);
    EXPECT_EQ(cleared.stream, StreamEvent::Stop);
    EXPECT_EQ(request(status).data, (Bytes{0, 0}));
}

TEST_F(ControlEngineTest, SerialTravelsOnBacklightCompensation)
{
    constexpr auto carrier = ControlId::BacklightCompensation;
    EXPECT_EQ(get(carrier, uvc::getCur), 0xcdefU);
    EXPECT_EQ(get(carrier, uvc::getMin), 0x89abU);
    EXPECT_EQ(get(carrier, uvc::getMax), 0x4567U);
    EXPECT_EQ(get(carrier, uvc::getDef), 0x0123U);
    EXPECT_EQ(get(carrier, uvc::getInfo), uvc::infoGet);
    EXPECT_FALSE(set(carrier, 0xcdef));
}

TEST_F(ControlEngineTest, EveryControlAnswersLengthInformationAndStep)
{
    for (const ControlTraits& traits : controlTable) {
        EXPECT_EQ(get(traits.id, uvc::getLen), traits.length) << traits.name;
        EXPECT_EQ(get(traits.id, uvc::getRes), 1U) << traits.name;
        EXPECT_EQ(get(traits.id, uvc::getInfo), traits.isWritable ? 3U : 1U) << traits.name;
        EXPECT_EQ(get(traits.id, 0x88), std::nullopt) << traits.name;
    }
}

TEST_F(ControlEngineTest, ControlsKeepWhatIsWrittenWithinTheirRange)
{
    for (const ControlId id : {ControlId::Brightness, ControlId::Gain, ControlId::Hue,
                               ControlId::Saturation, ControlId::Sharpness, ControlId::Gamma}) {
        const ControlValues values = config.controls[id];
        for (const std::int32_t value : {values.min, values.max, 77}) {
            EXPECT_TRUE(set(id, static_cast<std::uint32_t>(value)));
            EXPECT_EQ(get(id, uvc::getCur), static_cast<std::uint32_t>(value));
        }
        EXPECT_FALSE(set(id, static_cast<std::uint32_t>(values.max + 1)));
        EXPECT_EQ(errorCode(), 0x04);
        EXPECT_EQ(get(id, uvc::getCur), 77U);
    }
}

TEST_F(ControlEngineTest, ColourGainsShareTheirControlsWithNobodyElse)
{
    set(ControlId::Gamma, 10);
    set(ControlId::Sharpness, 20);
    set(ControlId::Hue, 30);
    set(ControlId::Saturation, 40);
    EXPECT_EQ(get(ControlId::Gamma, uvc::getCur), 10U);
    EXPECT_EQ(get(ControlId::Sharpness, uvc::getCur), 20U);
    EXPECT_EQ(get(ControlId::Hue, uvc::getCur), 30U);
    EXPECT_EQ(get(ControlId::Saturation, uvc::getCur), 40U);
}

TEST_F(ControlEngineTest, WritingTheSensorTypeBackResetsTheState)
{
    set(ControlId::Brightness, 3);
    set(ControlId::Gain, 4);
    set(ControlId::Gamma, 5);
    EXPECT_EQ(get(ControlId::Contrast, uvc::getCur), 2U);
    EXPECT_FALSE(set(ControlId::Contrast, 3));
    EXPECT_EQ(get(ControlId::Gain, uvc::getCur), 4U);

    Bytes data{2, 0};
    const ControlResult result = request({classToDevice, uvc::setCur, selector(ControlId::Contrast),
                                          address(ControlId::Contrast), 2},
                                         data);
    EXPECT_TRUE(result.isStateReset);
    for (const ControlId id : {ControlId::Brightness, ControlId::Gain, ControlId::Gamma}) {
        EXPECT_EQ(get(id, uvc::getCur), get(id, uvc::getDef));
    }
}

TEST_F(ControlEngineTest, ExposureModeIsManualOnly)
{
    EXPECT_TRUE(set(ControlId::AutoExposureMode, 1));
    for (const std::uint32_t mode : {0U, 2U, 3U, 4U, 8U}) {
        EXPECT_FALSE(set(ControlId::AutoExposureMode, mode)) << mode;
    }
}

TEST_F(ControlEngineTest, ErrorCodeNamesTheReasonOfTheLastRefusal)
{
    EXPECT_EQ(errorCode(), 0x00);
    request({classToHost, uvc::getCur, 0x0200, 0x0900, 2}); // no such entity
    EXPECT_EQ(errorCode(), 0x05);
    request({classToHost, uvc::getCur, 0x0500, 0x0200, 2}); // no such control in the unit
    EXPECT_EQ(errorCode(), 0x06);
    request({classToHost, uvc::getCur, 0x0100, 0x0300, 2}); // the output terminal has none
    EXPECT_EQ(errorCode(), 0x06);
    set(ControlId::BacklightCompensation, 1);
    EXPECT_EQ(errorCode(), 0x07);
    EXPECT_EQ(errorCode(), 0x07); // reading it does not change it
    set(ControlId::Gain, 5);
    EXPECT_EQ(errorCode(), 0x00);
}

TEST_F(ControlEngineTest, RefusesRequestsWhoseDirectionContradictsTheirCode)
{
    EXPECT_EQ(
        request({classToHost, uvc::setCur, selector(ControlId::Gain), address(ControlId::Gain), 2})
            .status,
        ControlStatus::Stalled);
    EXPECT_EQ(request({classToDevice, uvc::getCur, selector(ControlId::Gain),
                       address(ControlId::Gain), 2},
                      {0, 0})
                  .status,
              ControlStatus::Stalled);
}

TEST_F(ControlEngineTest, ProbeSettlesOnWhatTheCameraCanDo)
{
    StreamParameters wanted;
    wanted.hint = 1;
    wanted.formatIndex = 1;
    wanted.frameIndex = 2;
    wanted.frameInterval = 650000; // nearest of the list: 15 frames/s
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsProbe, wanted.encode()).status,
              ControlStatus::Done);
    const Bytes answer = stream(classToHost, uvc::getCur, uvc::vsProbe).data;
    ASSERT_EQ(answer.size(), 34U);
    EXPECT_EQ(answer[2], 1);
    EXPECT_EQ(answer[3], 2);
    EXPECT_EQ(readLittleEndian(answer, 4, 4), 666667U);
    EXPECT_EQ(readLittleEndian(answer, 18, 4), 640U * 480 * 2);
    EXPECT_EQ(readLittleEndian(answer, 22, 4), config.payloadSize);

    wanted.formatIndex = 7;
    wanted.frameIndex = 0;
    stream(classToDevice, uvc::setCur, uvc::vsProbe, wanted.encode());
    const Bytes corrected = stream(classToHost, uvc::getCur, uvc::vsProbe).data;
    EXPECT_EQ(corrected[2], 1);
    EXPECT_EQ(corrected[3], 1);
}

TEST_F(ControlEngineTest, ProbeTakesTheShortBlockOfOlderHosts)
{
    StreamParameters wanted;
    wanted.frameIndex = 2;
    Bytes block = wanted.encode();
    block.resize(26);
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsProbe, block).status, ControlStatus::Done);
    EXPECT_EQ(stream(classToHost, uvc::getCur, uvc::vsProbe).data.at(3), 2);
    block.resize(25);
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsProbe, block).status,
              ControlStatus::Stalled);
}

TEST_F(ControlEngineTest, ProbeBoundsSpanTheFrameRates)
{
    const Bytes shortest = stream(classToHost, uvc::getMin, uvc::vsProbe).data;
    const Bytes longest = stream(classToHost, uvc::getMax, uvc::vsProbe).data;
    EXPECT_EQ(readLittleEndian(shortest, 4, 4), 166667U);
    EXPECT_EQ(readLittleEndian(longest, 4, 4), 2000000U);
    EXPECT_EQ(readLittleEndian(stream(classToHost, uvc::getDef, uvc::vsProbe).data, 4, 4), 333333U);
    EXPECT_EQ(stream(classToHost, uvc::getLen, uvc::vsProbe).data, (Bytes{34, 0}));
    EXPECT_EQ(stream(classToHost, uvc::getInfo, uvc::vsProbe).data, Bytes{3});
}

TEST_F(ControlEngineTest, CommitStartsABulkStream)
{
    const Bytes block = negotiate(config, {}).encode();
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsProbe, block).stream, StreamEvent::None);
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsCommit, block).stream, StreamEvent::Start);
    EXPECT_EQ(request({0x01, usb::setInterface, 0, 1, 0}).stream, StreamEvent::Stop);
}

TEST_F(ControlEngineTest, PowerUpForgetsEverything)
{
    set(ControlId::Gain, 9);
    engine.haltEndpoint();
    CameraConfig other = config;
    other.controls.setSerial(42);
    engine.powerUp(other);
    EXPECT_EQ(get(ControlId::BacklightCompensation, uvc::getCur), 42U);
    EXPECT_EQ(get(ControlId::Gain, uvc::getCur), get(ControlId::Gain, uvc::getDef));
    EXPECT_FALSE(engine.isHalted());
}

class IsochronousEngineTest : public ControlEngineTest
{
protected:
    IsochronousEngineTest()
        : ControlEngineTest("type1,pipe=iso")
    {
    }
};

TEST_F(IsochronousEngineTest, AlternateSettingStartsAndStopsTheStream)
{
    const Bytes block = negotiate(config, {}).encode();
    EXPECT_EQ(stream(classToDevice, uvc::setCur, uvc::vsCommit, block).stream, StreamEvent::None);
    EXPECT_EQ(request({0x01, usb::setInterface, 3, 1, 0}).stream, StreamEvent::Start);
    EXPECT_EQ(request({0x81, usb::getInterface, 0, 1, 1}).data, Bytes{3});
    EXPECT_EQ(request({0x01, usb::setInterface, 0, 1, 0}).stream, StreamEvent::Stop);
    EXPECT_EQ(request({0x01, usb::setInterface, 4, 1, 0}).status, ControlStatus::Stalled);
}

} // namespace
} // namespace zrnsim
