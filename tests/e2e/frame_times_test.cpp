// Frames of a few bytes, a thousand a second, whole and damaged in every way: each that is grabbed
// has the times of its own payloads, and each whole one that is not is counted. Runs under zrnsim.

#include "built_driver.h"
#include "loaded_libuvc.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

namespace keys = zrn::keys;
using namespace std::chrono_literals;

// Of the camera that CMakeLists.txt has zrnsim make.
constexpr std::size_t frameBytes = 16 * 8 * 2;
constexpr std::size_t payloadBytes = 76 - 12;
constexpr int payloadsOfFrame = frameBytes / payloadBytes;

/// More than the camera sends at once, and than a frame has payloads.
constexpr std::int64_t manyPayloads = 100;

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

/// What libuvc collects.
struct CollectedFrame {
    std::uint32_t sequence = 0; ///< libuvc's number
    std::size_t bytes = 0;
    std::uint64_t wholeFrames = 0; ///< whole frames up to this one, itself included
    SentFrame first;               ///< that it begins with
    bool isJoined = false;         ///< with another one
    /// When the camera began to send the next one.
    double end = std::numeric_limits<double>::infinity();
};

/// What libuvc makes of the frames that a camera says it sent. It collects payloads without the
/// error bit until one with bytes says that the frame ends, or until the frame id changes.
class LibraryModel
{
public:
    /// @param endsFullFrames and until a whole frame's bytes are there
    explicit LibraryModel(bool endsFullFrames)
        : m_endsFullFrames(endsFullFrames)
    {
    }

    void follow(const SentFrame& sent)
    {
        if (m_open.bytes != 0) {
            m_open.end = std::min(m_open.end, sent.time);
        }
        if (!m_frames.empty()) {
            m_frames.back().end = std::min(m_frames.back().end, sent.time);
        }
        const bool frameId = m_nextFrameId;
        m_nextFrameId = !frameId;
        std::size_t offset = 0;
        bool isLast = false;
        for (int payload = 0; !isLast; ++payload) {
            for (int lost = 0;
                 payload == 1 && lost < sent.payloadsLost && offset + payloadBytes < sent.bytes;
                 ++lost) {
                offset += payloadBytes;
            }
            const std::size_t bytes = std::min(payloadBytes, sent.bytes - offset);
            offset += bytes;
            isLast = offset == sent.bytes;
            if (payload >= sent.payloadsWithError) {
                collect(sent, frameId, bytes, isLast && !sent.withoutEndOfFrame);
            }
        }
        noteKind(sent);
    }

    /// @return null for one that has not ended, or is forgotten
    const CollectedFrame* find(std::uint32_t sequence) const
    {
        const auto found =
            std::ranges::lower_bound(m_frames, sequence, {}, &CollectedFrame::sequence);
        return found != m_frames.end() && found->sequence == sequence ? &*found : nullptr;
    }
    void forgetBefore(std::uint32_t sequence)
    {
        while (!m_frames.empty() && m_frames.front().sequence < sequence) {
            m_frames.pop_front();
        }
    }
    std::uint32_t lastSequence() const { return m_lastSequence; }
    /// How many there were of each kind of damage.
    const std::map<std::string, std::uint64_t>& kinds() const { return m_kinds; }

private:
    void collect(const SentFrame& sent, bool frameId, std::size_t bytes, bool endsFrame)
    {
        if (frameId != m_frameId && m_open.bytes != 0) {
            endFrame();
        }
        m_frameId = frameId;
        if (bytes == 0) {
            return;
        }
        if (m_open.bytes == 0) {
            m_open.first = sent;
        } else {
            m_open.isJoined = m_open.isJoined || m_open.first.time != sent.time;
        }
        m_open.bytes += bytes;
        if (m_endsFullFrames) {
            m_open.bytes = std::min(m_open.bytes, frameBytes);
        }
        if (endsFrame || (m_endsFullFrames && m_open.bytes == frameBytes)) {
            endFrame();
        }
    }

    void endFrame()
    {
        m_wholeFrames += m_open.bytes == frameBytes ? 1U : 0U;
        m_open.wholeFrames = m_wholeFrames;
        if (!m_endsFullFrames) { // where a whole one ends by itself, none joins it
            m_kinds["joined"] += m_open.isJoined ? 1U : 0U;
        }
        m_open.sequence = ++m_lastSequence;
        m_frames.push_back(m_open);
        m_open = {};
    }

    void noteKind(const SentFrame& sent)
    {
        const bool isInError = sent.payloadsWithError >= payloadsOfFrame;
        m_kinds["lost payloads"] += sent.payloadsLost > 0 ? 1U : 0U;
        m_kinds["payloads in error"] += sent.payloadsWithError > 0 && !isInError ? 1U : 0U;
        m_kinds["all in error"] += isInError ? 1U : 0U;
        m_kinds["without an end"] += sent.withoutEndOfFrame ? 1U : 0U;
        m_kinds["larger"] += sent.bytes > frameBytes ? 1U : 0U;
        m_kinds["smaller"] += sent.bytes < frameBytes && sent.bytes > 0 ? 1U : 0U;
        m_kinds["empty"] += sent.bytes == 0 ? 1U : 0U;
    }

    const bool m_endsFullFrames;
    bool m_nextFrameId = false;
    bool m_frameId = false;
    std::uint32_t m_lastSequence = 0;
    std::uint64_t m_wholeFrames = 0;
    CollectedFrame m_open;
    std::deque<CollectedFrame> m_frames;
    std::map<std::string, std::uint64_t> m_kinds;
};

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

    /// The next kind of damage, to so many frames or less.
    void damageFrames()
    {
        const auto upTo = [this](std::int64_t most) {
            return static_cast<std::int64_t>(m_random() % static_cast<std::uint64_t>(most)) + 1;
        };
        VirtualCamera::Fields fault = {{"count", upTo(40)}};
        switch (m_nextDamage++ % 9) {
        case 0:
            fault.emplace_back("lostPayloads", upTo(2));
            break;
        case 1:
            fault.emplace_back("errorPayloads", upTo(payloadsOfFrame - 1));
            break;
        case 2:
            fault.emplace_back("errorPayloads", manyPayloads);
            break;
        case 3:
            fault.emplace_back("withoutEndOfFrame", true);
            break;
        case 4:
            fault.emplace_back("sizeDelta", upTo(100));
            break;
        case 5:
            fault.emplace_back("sizeDelta", -upTo(100));
            break;
        case 6:
            fault.emplace_back("bytes", std::int64_t{0});
            break;
        case 7: // between any two payloads; libuvc submits the transfer again
            virtualCamera.tell("transfer-fault",
                               {{"kind", std::string("overflow")}, {"count", upTo(3)}});
            return;
        default: // of two frames with one frame id libuvc makes one
            virtualCamera.tell("frame-fault",
                               {{"count", std::int64_t{-1}}, {"withoutEndOfFrame", true}});
            ASSERT_TRUE(virtualCamera.waitForCounter("framesProduced",
                                                     virtualCamera.counter("framesProduced") + 3));
            fault = {{"count", std::int64_t{1}}, {"errorPayloads", manyPayloads}};
        }
        virtualCamera.tell("frame-fault", fault);
    }

    /// Reads the camera's account until it tells of this frame.
    void followUpTo(std::uint32_t sequence)
    {
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (m_library.lastSequence() < sequence) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "the camera knows no such frame";
            for (const SentFrame& sent : virtualCamera.sentFrames(m_followed)) {
                if (!sent.complete || !sent.taken) {
                    std::this_thread::sleep_for(5ms);
                    break;
                }
                m_library.follow(sent);
                ++m_followed;
            }
        }
    }

    void expectOwnTimes(const TimedFrame& frame)
    {
        const CameraSpace::FrameTimes& times = frame.times;
        const CollectedFrame* const own = m_library.find(times.sequence);
        ASSERT_NE(own, nullptr);
        ASSERT_EQ(own->bytes, frameBytes) << "damaged";
        ASSERT_EQ(zrnsim::trailerOf(own->first.request), frame.trailer) << "another frame's number";
        ASSERT_LE(times.lastPayload, times.handOver);

        m_accounted += 1 + times.ringLosses + times.libraryLosses;
        if (times.payloadSource != CameraSpace::FrameTimeSource::Payload) {
            ++m_unseen;
            return;
        }
        if (m_matched++ == 0) {
            m_accounted = own->wholeFrames;
        }
        ASSERT_EQ(own->wholeFrames, m_accounted) << "whole frames, grabbed or lost";
        ASSERT_EQ(times.hasSourceClock, 1U);
        constexpr double rounding = 1e-6;
        ASSERT_GE(sentTime(times), own->first.time - rounding) << "another frame's times";
        ASSERT_LT(sentTime(times), own->end) << "another frame's times";
        ASSERT_GE(static_cast<double>(times.firstPayload), *own->first.taken * 1e9);
        ASSERT_LE(times.firstPayload, times.lastPayload);
    }

    zrn::DriverPlugin m_plugin{builtPlugin};
    zrn::CameraObject host{m_plugin.factory()};
    VirtualCamera virtualCamera;
    std::mt19937 m_random{19}; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage in each run
    unsigned m_nextDamage = 0;
    std::uint64_t m_followed = 0; ///< entries of the camera's account
    LibraryModel m_library{libuvcIs007OrNewer()};
    std::uint64_t m_accounted = 0; ///< whole frames up to the last that was grabbed
    std::uint64_t m_matched = 0;
    std::uint64_t m_unseen = 0;
};

/// A host of one camera, and the camera's own account.
class TimedCamera
{
public:
    TimedCamera(zrn::DriverPlugin& plugin, std::size_t index)
        : m_host(plugin.factory())
        , m_camera(index)
    {
    }

    void connect()
    {
        ASSERT_EQ(m_host->connectDeviceBySerial(QString::fromStdString(m_camera.serial())),
                  ErrorCode::Success);
        m_host.writeProperty(keys::maxGrabWaitTime, patientGrabMs);
    }
    void start() { ASSERT_EQ(m_host->startStream(0), ErrorCode::Success); }
    void stop() { m_host->stopStream(0); }
    VirtualCamera& camera() { return m_camera; }

    /// Grabs some frames and expects the times of their own payloads.
    void expectTimes(int frames)
    {
        for (int i = 0; i < frames; ++i) {
            QList<CameraSpace::ImageBlock*> images;
            CameraSpace::FrameTimes times;
            ASSERT_EQ(m_host.frameTimes()->grabTimedImage(images, times), ErrorCode::Success);
            const quint64 trailer = ContractSpace::trailerOf(*images.front());
            qDeleteAll(images);
            const std::optional<SentFrame> sent = waitForAccount(trailer);
            ASSERT_TRUE(sent) << "the camera knows no such frame";
            ASSERT_EQ(times.payloadSource, CameraSpace::FrameTimeSource::Payload);
            ASSERT_EQ(times.hasSourceClock, 1U);
            ASSERT_GE(sentTime(times), sent->time - 1e-6);
            ASSERT_GE(static_cast<double>(times.firstPayload), *sent->taken * 1e9);
            ASSERT_LE(times.firstPayload, times.lastPayload);
            ASSERT_LE(times.lastPayload, times.handOver);
        }
    }

private:
    std::optional<SentFrame> waitForAccount(quint64 trailer)
    {
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (std::chrono::steady_clock::now() < end) {
            const std::vector<SentFrame> frames = m_camera.sentFrames();
            const auto found = std::find_if(frames.rbegin(), frames.rend(), [&](const auto& frame) {
                return zrnsim::trailerOf(frame.request) == trailer;
            });
            if (found != frames.rend() && found->taken) {
                return *found;
            }
            std::this_thread::sleep_for(5ms);
        }
        return std::nullopt;
    }

    zrn::CameraObject m_host;
    VirtualCamera m_camera;
};

void enumerate(zrn::DriverPlugin& plugin, int cameras)
{
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (plugin.factory().enumDevice() != cameras) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "not all cameras are there";
        std::this_thread::sleep_for(20ms);
    }
}

} // namespace

TEST(FrameTimesOfTwoCameras, EachStreamHasItsOwn)
{
    zrn::DriverPlugin plugin(builtPlugin);
    ASSERT_NO_FATAL_FAILURE(enumerate(plugin, 2));
    TimedCamera one(plugin, 0);
    TimedCamera other(plugin, 1);
    for (TimedCamera* const camera : {&one, &other}) {
        ASSERT_NO_FATAL_FAILURE(camera->connect());
        ASSERT_NO_FATAL_FAILURE(camera->start());
    }
    for (int i = 0; i < 10; ++i) {
        ASSERT_NO_FATAL_FAILURE(one.expectTimes(3));
        ASSERT_NO_FATAL_FAILURE(other.expectTimes(3));
    }
    one.stop();
    ASSERT_NO_FATAL_FAILURE(other.expectTimes(10));
    ASSERT_NO_FATAL_FAILURE(one.start());
    ASSERT_NO_FATAL_FAILURE(one.expectTimes(10));
    ASSERT_NO_FATAL_FAILURE(other.expectTimes(10));
}

TEST(FrameTimesOfOneCamera, StreamsThatStartAgainHaveThem)
{
    zrn::DriverPlugin plugin(builtPlugin);
    for (int plugging = 0; plugging < 3; ++plugging) {
        ASSERT_NO_FATAL_FAILURE(enumerate(plugin, 1));
        TimedCamera camera(plugin, 0);
        ASSERT_NO_FATAL_FAILURE(camera.connect());
        for (int stream = 0; stream < 5; ++stream) {
            ASSERT_NO_FATAL_FAILURE(camera.start());
            ASSERT_NO_FATAL_FAILURE(camera.expectTimes(5));
            camera.stop();
        }
        ASSERT_NO_FATAL_FAILURE(camera.start());
        ASSERT_NO_FATAL_FAILURE(camera.expectTimes(5));
        camera.camera().unplug();
        camera.stop();
        camera.camera().restore();
    }
}

TEST_F(FrameTimesOnTheBus, WholeAndDamagedFramesKeepTheirOwnTimes)
{
    constexpr std::size_t comparedAtOnce = 500;
    constexpr std::size_t betweenDamages = 50;
    const char* const count = std::getenv("ZRN_TIMED_FRAMES");
    const std::uint64_t frames = count ? std::strtoull(count, nullptr, 10) : 3000;
    std::uint64_t ringLosses = 0;
    std::uint64_t libraryLosses = 0;
    while (virtualCamera.counter("framesStarted") < frames) {
        std::vector<TimedFrame> grabbed;
        while (grabbed.size() < comparedAtOnce) {
            if (grabbed.size() % betweenDamages == 0) {
                ASSERT_NO_FATAL_FAILURE(damageFrames());
            }
            QList<CameraSpace::ImageBlock*> images;
            TimedFrame frame;
            ASSERT_EQ(host.frameTimes()->grabTimedImage(images, frame.times), ErrorCode::Success);
            frame.trailer = ContractSpace::trailerOf(*images.front());
            qDeleteAll(images);
            ringLosses += frame.times.ringLosses;
            libraryLosses += frame.times.libraryLosses;
            grabbed.push_back(frame);
        }
        ASSERT_NO_FATAL_FAILURE(followUpTo(grabbed.back().times.sequence));
        for (const TimedFrame& frame : grabbed) {
            ASSERT_NO_FATAL_FAILURE(expectOwnTimes(frame)) << "frame " << frame.times.sequence;
        }
        m_library.forgetBefore(grabbed.back().times.sequence);
    }
    std::cout << m_followed << " frames sent, " << m_matched << " grabbed with their own times, "
              << m_unseen << " without, lost by libuvc " << libraryLosses << ", by the ring "
              << ringLosses << "\n";
    for (const auto& [kind, damaged] : m_library.kinds()) {
        std::cout << damaged << " " << kind << "\n";
        EXPECT_GT(damaged, 0U) << kind;
    }
    EXPECT_GT(virtualCamera.counter("transfersFailed"), 0U);
    EXPECT_LE(m_unseen, m_matched / 10) << "callbacks more than 256 frames late";
}
