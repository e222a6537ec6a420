// What a host does with cameras over time. Runs under zrnsim with three cameras that send by
// themselves.

#include "built_driver.h"
#include "virtual_camera.h"

#include <QPointer>
#include <QSet>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <thread>

namespace
{

namespace keys = zrn::keys;

constexpr int cameras = 3;
constexpr std::size_t resettableCamera = 0; // sensor type 2

class Session : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(m_plugin->factory().enumDevice(), cameras); }

    std::optional<zrn::DriverPlugin> m_plugin{builtPlugin};
};

/// Grabs @p count frames and compares each with what its camera says it sent.
void expectFrames(zrn::CameraObject& host, std::size_t cameraIndex, int count)
{
    host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
    std::vector<Grab> grabs;
    for (int i = 0; i < count; ++i) {
        grabs.push_back(grabFrom(host));
        ASSERT_EQ(grabs.back().result, ErrorCode::Success);
    }
    // Trailers repeat after 128 frames or more: from the newest frame back, each belongs to the
    // next one that it fits.
    const std::vector<SentFrame> frames = VirtualCamera(cameraIndex).sentFrames();
    auto sent = frames.rbegin();
    for (auto grabbed = grabs.rbegin(); grabbed != grabs.rend(); ++grabbed) {
        const quint64 trailer = ContractSpace::trailerOf(*grabbed->images.front());
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
        if (serial == QString::fromStdString(VirtualCamera(i).serial())) {
            return i;
        }
    }
    return cameras;
}

TEST_F(Session, StreamsFromThreeCamerasAtOnce)
{
    std::vector<std::unique_ptr<zrn::CameraObject>> hosts;
    hosts.reserve(cameras);
    QSet<QString> serials;
    for (int i = 0; i < cameras; ++i) {
        hosts.push_back(std::make_unique<zrn::CameraObject>(m_plugin->factory()));
        ASSERT_EQ((*hosts.back())->connectDeviceByIndex(i), ErrorCode::Success);
        serials.insert(hosts.back()->property(keys::serial).toString());
        ASSERT_EQ((*hosts.back())->startStream(0), ErrorCode::Success);
    }
    EXPECT_EQ(serials.size(), cameras);

    std::vector<std::thread> threads;
    threads.reserve(cameras);
    for (const std::unique_ptr<zrn::CameraObject>& host : hosts) {
        threads.emplace_back([&host] {
            expectFrames(*host, indexOfSerial(host->property(keys::serial).toString()), 12);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::unique_ptr<zrn::CameraObject>& host : hosts) {
        EXPECT_EQ((*host)->stopStream(0), ErrorCode::Success);
        EXPECT_EQ((*host)->disconnectDevice(), ErrorCode::Success);
    }
}

TEST_F(Session, StartsAndStopsFiftyTimes)
{
    zrn::CameraObject host(m_plugin->factory());
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
    host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(host->startStream(0), ErrorCode::Success) << i;
        ASSERT_EQ(grabFrom(host).result, ErrorCode::Success) << i;
        ASSERT_EQ(host->stopStream(0), ErrorCode::Success) << i;
    }
}

TEST_F(Session, ReadsBackEveryControl)
{
    zrn::CameraObject host(m_plugin->factory());
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);

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
        {keys::rGain, 11}, {keys::grGain, 22}, {keys::gbGain, 33}, {keys::bGain, 44}};
    for (const auto& [key, value] : colorGains) {
        EXPECT_EQ(host.writeProperty(key, value), ErrorCode::Success) << key;
    }
    for (const auto& [key, value] : colorGains) {
        EXPECT_EQ(host.property(key).toInt(), value) << key;
    }
    // The colour gains travel on the direct settings' controls.
    EXPECT_EQ(host.property(keys::gamma).toInt(), 11);
    EXPECT_EQ(host.property(keys::sharp).toInt(), 22);
    EXPECT_EQ(host.property(keys::hue).toInt(), 33);
}

TEST_F(Session, ResetsTheCamera)
{
    VirtualCamera camera(resettableCamera);
    zrn::CameraObject host(m_plugin->factory());
    ASSERT_EQ(host->connectDeviceBySerial(QString::fromStdString(camera.serial())),
              ErrorCode::Success);
    const auto resets = [&camera] { return camera.counter("resets"); };
    const std::uint64_t before = resets();
    QMap<QString, QVariant> values;
    EXPECT_EQ(host->executeCommand(QStringLiteral("ClearState"), values), ErrorCode::Success);
    EXPECT_EQ(resets(), before + 1);
}

TEST_F(Session, AccountsForEveryFrame)
{
    zrn::CameraObject host(m_plugin->factory());
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
    const std::size_t index = indexOfSerial(host.property(keys::serial).toString());
    ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
    QSet<quint64> trailers;
    for (int i = 0; i < 20; ++i) {
        const Grab grabbed = grabFrom(host);
        ASSERT_EQ(grabbed.result, ErrorCode::Success);
        trailers.insert(ContractSpace::trailerOf(*grabbed.images.front()));
    }
    ASSERT_EQ(host->stopStream(0), ErrorCode::Success);
    VirtualCamera camera(index);
    EXPECT_EQ(trailers.size(), 20);
    EXPECT_GE(camera.counter("framesSent"), 20U);
    EXPECT_EQ(camera.counter("payloadsLost"), 0U);
}

TEST_F(Session, FramesHaveTheTimesOfTheirOwnPayloads)
{
    zrn::CameraObject host(m_plugin->factory());
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
    const std::size_t index = indexOfSerial(host.property(keys::serial).toString());
    ASSERT_NE(host.frameTimes(), nullptr);
    ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
    struct Timed {
        quint64 trailer;
        CameraSpace::FrameTimes times;
    };
    std::vector<Timed> grabs;
    for (int i = 0; i < 30; ++i) {
        QList<CameraSpace::ImageBlock*> images;
        Timed grab{};
        ASSERT_EQ(host.frameTimes()->grabTimedImage(images, grab.times), ErrorCode::Success);
        grab.trailer = ContractSpace::trailerOf(*images.front());
        qDeleteAll(images);
        grabs.push_back(grab);
    }
    ASSERT_EQ(host->stopStream(0), ErrorCode::Success);

    // The camera stamps each payload when it begins to send it, so the stamp of a frame's first one
    // lies between the beginnings of that frame and of the next, and no other frame's does.
    const std::vector<SentFrame> sent = VirtualCamera(index).sentFrames();
    auto from = sent.rbegin();
    for (auto grabbed = grabs.rbegin(); grabbed != grabs.rend(); ++grabbed, ++from) {
        from = std::find_if(from, sent.rend(), [&grabbed](const SentFrame& frame) {
            return zrnsim::trailerOf(frame.request) == grabbed->trailer;
        });
        ASSERT_TRUE(from != sent.rend());
        const CameraSpace::FrameTimes& times = grabbed->times;
        EXPECT_EQ(times.payloadSource, CameraSpace::FrameTimeSource::Payload);
        EXPECT_LE(from->time * 1e9, static_cast<double>(times.firstPayload));
        EXPECT_LT(times.firstPayload, times.lastPayload);
        EXPECT_LE(times.lastPayload, times.handOver);
        ASSERT_EQ(times.hasSourceClock, 1U);
        ASSERT_GT(times.clockFrequency, 0U);
        const double clock = 4294967296.0 / times.clockFrequency; // seconds until it wraps
        const auto sinceBegin = [&times, clock](double begin) {
            return std::remainder(double(times.sourceClock) / times.clockFrequency - begin, clock);
        };
        constexpr double rounding = 1e-6;
        EXPECT_GE(sinceBegin(from->time), -rounding);
        if (from != sent.rbegin()) {
            EXPECT_LE(sinceBegin(std::prev(from)->time), rounding);
        }
        ASSERT_EQ(times.hasPresentationTime, 1U);
    }
}

TEST_F(Session, ReloadsThePlugin)
{
    const QPointer<IFactory> factory = &m_plugin->factory();
    m_plugin.reset();
    EXPECT_TRUE(factory.isNull());
    zrn::DriverPlugin again(builtPlugin);
    EXPECT_EQ(again.factory().enumDevice(), cameras);
}

} // namespace
