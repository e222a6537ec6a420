// One virtual camera of any preset: what a host grabs is byte for byte what the camera sent, and
// the controls do what its sensors ask for.

#include "built_driver.h"
#include "pictures/sensor_types.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

/// Frames with these numbers are sent: low ones, the first marker frame of sensor type 6, bytes
/// that are negative when signed, and headers that tell every shift of sensor type 0.
constexpr std::uint32_t frameNumbers[] = {
    48,         49,         50,         51,         52,         53,        54,
    0x12008180, 0xFFFFFFFF, 0x003A0001, 0x3A000002, 0x30000003, 0x00300004};

/// Where two images differ, in words that fit on a line.
std::string firstDifference(const QByteArray& received, const std::vector<std::uint8_t>& sent)
{
    const auto* const data = reinterpret_cast<const std::uint8_t*>(received.constData());
    if (std::equal(sent.begin(), sent.end(), data)) { // one comparison, also under sanitizers
        return "none";
    }
    return "byte " +
           std::to_string(std::mismatch(sent.begin(), sent.end(), data).first - sent.begin());
}

void expectImage(const CameraSpace::ImageBlock& image, const std::vector<std::uint8_t>& sent,
                 const zrnsim::FrameRequest& request, quint64 trailer)
{
    EXPECT_EQ(image.type, 0);
    EXPECT_EQ(image.width, request.width);
    EXPECT_EQ(image.height, request.height);
    EXPECT_EQ(image.bitsPerPixel, 8);
    ASSERT_EQ(static_cast<std::size_t>(image.data.size()), sent.size() + sizeof(trailer));
    EXPECT_EQ(firstDifference(image.data, sent), "none");
    EXPECT_EQ(ContractSpace::trailerOf(image), trailer);
}

TEST(Preset, DeliversWhatTheCameraSent)
{
    zrn::DriverPlugin plugin(builtPlugin);
    ASSERT_EQ(plugin.factory().enumDevice(), 1);
    zrn::CameraObject host(plugin.factory());
    VirtualCamera camera;
    ASSERT_EQ(host->connectDeviceBySerial(QString::fromStdString(camera.serial())),
              ErrorCode::Success);
    host.writeProperty(zrn::keys::maxGrabWaitTime, patientGrabMs);
    ASSERT_EQ(host->startStream(0), ErrorCode::Success);

    std::vector<Grab> grabs;
    for (const std::uint32_t number : frameNumbers) {
        camera.tell("frame-number", {{"number", number}});
        camera.emitFrame();
        grabs.push_back(grabFrom(host));
    }
    EXPECT_EQ(host->stopStream(0), ErrorCode::Success);

    const std::vector<SentFrame> sent = camera.sentFrames();
    ASSERT_EQ(sent.size(), grabs.size());
    for (std::size_t i = 0; i < grabs.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(sent[i].request.frameNumber));
        const zrnsim::SentImages expected = zrnsim::expectedImages(sent[i].request);
        ASSERT_EQ(grabs[i].result, ErrorCode::Success);
        ASSERT_EQ(grabs[i].images.size(), (expected.hasA ? 1U : 0U) + (expected.hasB ? 1U : 0U));
        std::size_t next = 0;
        if (expected.hasA) {
            expectImage(*grabs[i].images[next++], expected.a, sent[i].request, expected.trailer);
        }
        if (expected.hasB) {
            expectImage(*grabs[i].images[next++], expected.b, sent[i].request, expected.trailer);
        }
    }
}

// By the virtual camera's table of sensor types: the driver has another one.
TEST(Preset, IsTakenForItsSensorType)
{
    zrn::DriverPlugin plugin(builtPlugin);
    ASSERT_EQ(plugin.factory().enumDevice(), 1);
    zrn::CameraObject host(plugin.factory());
    VirtualCamera camera;
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
    const int reported = camera.ask("camera").at("camera").at("sensorType");
    const zrnsim::SensorType& sensor = zrnsim::sensorTypeOf(zrnsim::receivedSensorType(reported));

    const auto brightness = camera.ask("controls").at("controls").at("brightness");
    const auto exposureOf = [&](const char* limit) {
        return static_cast<unsigned>(brightness.at(limit).get<int>() * sensor.exposureStep);
    };
    unsigned shortest = 0;
    unsigned longest = 0;
    ASSERT_EQ(host->getExposureTimeRange(shortest, longest, 0), ErrorCode::Success);
    EXPECT_EQ(shortest, exposureOf("min"));
    EXPECT_EQ(longest, exposureOf("max"));

    EXPECT_EQ(host.property(zrn::keys::sensorCount), QVariant(sensor.sensorCount));
    QMap<QString, QVariant> values;
    EXPECT_EQ(host->executeCommand(QStringLiteral("ClearState"), values),
              sensor.hasReset ? ErrorCode::Success : ErrorCode::CommandFailed);
}

} // namespace
