// What a host does with cameras over time. Runs under zrnsim with three cameras that send by
// themselves.

#include "pictures/frame_header.h"
#include "plugin_host.h"
#include "virtual_camera.h"

#include <QSet>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace
{

constexpr int cameras = 3;
constexpr std::size_t resettableCamera = 0; // sensor type 2

class Session : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(m_plugin.factory().enumDevice(), cameras); }

    PluginHost m_plugin;
};

/// Grabs @p count frames and compares each with what its camera says it sent.
void expectFrames(HostCamera& host, std::size_t cameraIndex, int count)
{
    host.setProperty("MaxGrabWaitTime", patientGrabMs);
    std::vector<Grab> grabs;
    for (int i = 0; i < count; ++i) {
        grabs.push_back(grab(host.camera()));
        ASSERT_EQ(grabs.back().result, ErrorCode::Success);
    }
    // Trailers repeat after 128 frames or more: from the newest frame back, each belongs to the
    // next one that it fits.
    const std::vector<SentFrame> frames = VirtualCamera(cameraIndex).sentFrames();
    auto sent = frames.rbegin();
    for (auto grabbed = grabs.rbegin(); grabbed != grabs.rend(); ++grabbed) {
        const quint64 trailer = trailerOf(*grabbed->images.front());
        sent = std::find_if(sent, frames.rend(), [trailer](const SentFrame& frame) {
            return zrnsim::trailerOf(frame.request) == trailer;
        });
        ASSERT_TRUE(sent != frames.rend()) << "trailer " << trailer;

        const quint32 number = sent->request.frameNumber;
        const zrnsim::SentImages expected = zrnsim::expectedImages(sent->request);
        ++sent;
        const auto compare = [](const CameraSpace::ImageBlock& image,
                                const std::vector<std::uint8_t>& pixels) {
            return std::equal(pixels.begin(), pixels.end(),
                              reinterpret_cast<const std::uint8_t*>(image.data.constData()));
        };
        if (expected.hasA) {
            EXPECT_TRUE(compare(*grabbed->images.front(), expected.a))
                << "image A of frame " << number;
        }
        if (expected.hasB) {
            EXPECT_TRUE(compare(*grabbed->images.back(), expected.b))
                << "image B of frame " << number;
        }
    }
}

std::size_t indexOfSerial(const QString& serial)
{
    for (std::size_t i = 0; i < cameras; ++i) {
        if (serial == QStringLiteral("ZR") + QString::fromStdString(VirtualCamera(i).serialKey())) {
            return i;
        }
    }
    return cameras;
}

TEST_F(Session, StreamsFromThreeCamerasAtOnce)
{
    std::vector<std::unique_ptr<HostCamera>> hosts;
    hosts.reserve(cameras);
    QSet<QString> serials;
    for (int i = 0; i < cameras; ++i) {
        hosts.push_back(std::make_unique<HostCamera>(m_plugin.factory()));
        ASSERT_EQ(hosts.back()->device().connectDeviceByIndex(i), ErrorCode::Success);
        serials.insert(hosts.back()->property("Serial").toString());
        ASSERT_EQ((*hosts.back())->startStream(0), ErrorCode::Success);
    }
    EXPECT_EQ(serials.size(), cameras);

    std::vector<std::thread> threads;
    threads.reserve(cameras);
    for (const std::unique_ptr<HostCamera>& host : hosts) {
        threads.emplace_back([&host] {
            expectFrames(*host, indexOfSerial(host->property("Serial").toString()), 12);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::unique_ptr<HostCamera>& host : hosts) {
        EXPECT_EQ((*host)->stopStream(0), ErrorCode::Success);
        EXPECT_EQ(host->device().disconnectDevice(), ErrorCode::Success);
    }
}

TEST_F(Session, StartsAndStopsFiftyTimes)
{
    HostCamera host(m_plugin.factory());
    ASSERT_EQ(host.device().connectDeviceByIndex(0), ErrorCode::Success);
    host.setProperty("MaxGrabWaitTime", patientGrabMs);
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(host->startStream(0), ErrorCode::Success) << i;
        ASSERT_EQ(grab(host.camera()).result, ErrorCode::Success) << i;
        ASSERT_EQ(host->stopStream(0), ErrorCode::Success) << i;
    }
}

TEST_F(Session, ReadsBackEveryControl)
{
    HostCamera host(m_plugin.factory());
    ASSERT_EQ(host.device().connectDeviceByIndex(0), ErrorCode::Success);

    unsigned int shortest = 0;
    unsigned int longest = 0;
    ASSERT_EQ(host->getExposureTimeRange(shortest, longest, 0), ErrorCode::Success);
    ASSERT_LT(shortest, longest);
    const unsigned int middle = (shortest + longest) / 2;
    unsigned int exposure = 0;
    EXPECT_EQ(host->setExposureTime(middle, 0), ErrorCode::Success);
    EXPECT_EQ(host->getExposureTime(exposure, 0), ErrorCode::Success);
    EXPECT_NEAR(exposure, middle, 100); // the device's coarsest step
    EXPECT_EQ(host->setExposureTime(longest + 1, 0), ErrorCode::BadArgument);

    unsigned short lowest = 0;
    unsigned short highest = 0;
    unsigned short gain = 0;
    ASSERT_EQ(host->getGainRange(lowest, highest, 0), ErrorCode::Success);
    EXPECT_EQ(host->setGain(highest, 0), ErrorCode::Success);
    EXPECT_EQ(host->getGain(gain, 0), ErrorCode::Success);
    EXPECT_EQ(gain, highest);

    const std::pair<const char*, int> colorGains[] = {
        {"RGain", 11}, {"GRGain", 22}, {"GBGain", 33}, {"BGain", 44}};
    for (const auto& [key, value] : colorGains) {
        EXPECT_EQ(host.setProperty(key, value), ErrorCode::Success) << key;
    }
    for (const auto& [key, value] : colorGains) {
        EXPECT_EQ(host.property(key).toInt(), value) << key;
    }
    // The colour gains travel on the direct settings' controls.
    EXPECT_EQ(host.property("Gamma").toInt(), 11);
    EXPECT_EQ(host.property("Sharp").toInt(), 22);
    EXPECT_EQ(host.property("Hue").toInt(), 33);
}

TEST_F(Session, ResetsTheCamera)
{
    VirtualCamera camera(resettableCamera);
    HostCamera host(m_plugin.factory());
    ASSERT_EQ(host.device().connectDeviceBySerial(QStringLiteral("ZR") +
                                                  QString::fromStdString(camera.serialKey())),
              ErrorCode::Success);
    const auto resets = [&camera] {
        return camera.run("counters").at("counters").at("resets").get<int>();
    };
    const int before = resets();
    QMap<QString, QVariant> values;
    EXPECT_EQ(host.device().executeCommand(QStringLiteral("ClearState"), values),
              ErrorCode::Success);
    EXPECT_EQ(resets(), before + 1);
}

TEST_F(Session, AccountsForEveryFrame)
{
    HostCamera host(m_plugin.factory());
    ASSERT_EQ(host.device().connectDeviceByIndex(0), ErrorCode::Success);
    const std::size_t index = indexOfSerial(host.property("Serial").toString());
    ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    host.setProperty("MaxGrabWaitTime", patientGrabMs);
    QSet<quint64> trailers;
    for (int i = 0; i < 20; ++i) {
        const Grab grabbed = grab(host.camera());
        ASSERT_EQ(grabbed.result, ErrorCode::Success);
        trailers.insert(trailerOf(*grabbed.images.front()));
    }
    ASSERT_EQ(host->stopStream(0), ErrorCode::Success);
    const nlohmann::json counters = VirtualCamera(index).run("counters").at("counters");
    EXPECT_EQ(trailers.size(), 20);
    EXPECT_GE(counters.at("framesSent").get<int>(), 20);
    EXPECT_EQ(counters.at("payloadsLost").get<int>(), 0);
}

TEST_F(Session, ReloadsThePlugin)
{
    ASSERT_TRUE(m_plugin.unload());
    PluginHost again;
    EXPECT_EQ(again.factory().enumDevice(), cameras);
}

} // namespace
