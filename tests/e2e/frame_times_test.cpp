// Frames of a few bytes, a hundred a moment, whole and damaged in every way: each that is grabbed
// has the times of its own payloads. Runs under zrnsim.

#include "built_driver.h"
#include "pictures/frame_header.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>

namespace
{

namespace keys = zrn::keys;

struct TimedFrame {
    quint64 trailer = 0;
    CameraSpace::FrameTimes times;
};

/// When the camera began to send the frame's payload, in seconds of CLOCK_MONOTONIC: its clock is
/// the machine's, and wraps.
double sentTime(const CameraSpace::FrameTimes& times)
{
    const double wrap = 4294967296.0 / times.clockFrequency;
    const double arrival = static_cast<double>(times.firstPayload) / 1e9;
    const double clock = static_cast<double>(times.sourceClock) / times.clockFrequency;
    return arrival - std::remainder(arrival - clock, wrap);
}

class FrameTimesOnTheBus : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_plugin.factory().enumDevice(), 1);
        ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
        host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
        host.writeProperty(keys::cacheFrameCount, 256);
        ASSERT_NE(host.frameTimes(), nullptr);
        ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    }
    void TearDown() override { host->stopStream(0); }

    /// The next kind of damage.
    void damageFrames(std::mt19937& random)
    {
        const auto upTo = [&random](std::int64_t most) {
            return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(most)) + 1;
        };
        VirtualCamera::Fields fault = {{"count", upTo(40)}};
        switch (random() % 6) {
        case 0:
            fault.emplace_back("lostPayloads", upTo(2));
            break;
        case 1:
            fault.emplace_back("errorPayloads", upTo(3));
            break;
        case 2:
            fault.emplace_back("withoutEndOfFrame", true);
            break;
        case 3:
            fault.emplace_back("sizeDelta", upTo(100));
            break;
        case 4:
            fault.emplace_back("sizeDelta", -upTo(100));
            break;
        default: // cuts frames anywhere, and libuvc submits the transfer again
            virtualCamera.tell("transfer-fault",
                               {{"kind", std::string("overflow")}, {"count", upTo(3)}});
            return;
        }
        virtualCamera.tell("frame-fault", fault);
    }

    /// Compares frames with what the camera says it sent.
    void expectOwnTimes(const std::vector<TimedFrame>& frames)
    {
        const std::vector<SentFrame> sent = virtualCamera.sentFrames(m_compared);
        ASSERT_FALSE(sent.empty());
        constexpr double rounding = 1e-6;
        for (const TimedFrame& frame : frames) {
            const CameraSpace::FrameTimes& times = frame.times;
            if (times.payloadSource != CameraSpace::FrameTimeSource::Payload) {
                ++m_unseen;
                continue;
            }
            ASSERT_EQ(times.hasSourceClock, 1U);
            const auto next = std::upper_bound(
                sent.begin(), sent.end(), sentTime(times) + rounding,
                [](double time, const SentFrame& other) { return time < other.time; });
            ASSERT_TRUE(next != sent.begin());
            // A frame behind whose last whole payload others were lost may have lost its first.
            const SentFrame& own = *std::prev(next);
            ASSERT_EQ(zrnsim::trailerOf(own.request), frame.trailer) << "another frame's times";
            ASSERT_LE(own.time * 1e9, static_cast<double>(times.firstPayload));
            ASSERT_LE(times.firstPayload, times.lastPayload);
            ASSERT_LE(times.lastPayload, times.handOver);
            ++m_matched;
        }
        // What the ring still holds is compared with the next.
        constexpr std::uint64_t mostHeldFrames = 1000;
        m_compared += sent.size() - std::min<std::size_t>(sent.size(), mostHeldFrames);
    }

    zrn::DriverPlugin m_plugin{builtPlugin};
    zrn::CameraObject host{m_plugin.factory()};
    VirtualCamera virtualCamera;
    std::uint64_t m_compared = 0;
    std::uint64_t m_matched = 0;
    std::uint64_t m_unseen = 0;
};

} // namespace

TEST_F(FrameTimesOnTheBus, WholeAndDamagedFramesKeepTheirOwnTimes)
{
    constexpr std::size_t comparedAtOnce = 500;
    const char* const count = std::getenv("ZRN_TIMED_FRAMES");
    const std::uint64_t frames = count ? std::strtoull(count, nullptr, 10) : 3000;
    std::mt19937 random(19); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage in each run
    std::vector<TimedFrame> grabbed;
    std::uint64_t ringLosses = 0;
    std::uint64_t libraryLosses = 0;
    while (virtualCamera.counter("framesStarted") < frames) {
        damageFrames(random);
        while (grabbed.size() < comparedAtOnce) {
            QList<CameraSpace::ImageBlock*> images;
            TimedFrame frame;
            ASSERT_EQ(host.frameTimes()->grabTimedImage(images, frame.times), ErrorCode::Success);
            frame.trailer = ContractSpace::trailerOf(*images.front());
            qDeleteAll(images);
            ringLosses += frame.times.ringLosses;
            libraryLosses += frame.times.libraryLosses;
            grabbed.push_back(frame);
            if (grabbed.size() % 50 == 0) {
                damageFrames(random);
            }
        }
        ASSERT_NO_FATAL_FAILURE(expectOwnTimes(grabbed));
        grabbed.clear();
    }
    const std::uint64_t sent = virtualCamera.counter("framesStarted");
    std::cout << sent << " frames sent, " << m_matched << " grabbed with their own times, "
              << m_unseen << " without, lost by libuvc " << libraryLosses << ", by the ring "
              << ringLosses << "\n";
    EXPECT_GT(m_matched, 0U);
    EXPECT_LE(m_unseen, m_matched / 100) << "callbacks more than 256 frames late";
    EXPECT_LE(m_matched + m_unseen + libraryLosses + ringLosses, sent);
}
