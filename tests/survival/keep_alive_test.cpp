// zrncam as the model of a host that keeps a stream going whatever the camera does.

#include "camera_rig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace
{

using Clock = std::chrono::steady_clock;
using survival::milliseconds;

/// No machine is so slow that what is waited for takes longer.
constexpr milliseconds patience(60'000);
/// Silence that zrncam takes for an outage; a busy machine alone should not cause it.
constexpr milliseconds outageWait(1500);
/// So long must frames have come before zrncam counts upon their rate, with time to spare.
constexpr milliseconds rateKnown(1600);

class KeepAlive : public testing::Test
{
protected:
    void SetUp() override
    {
        bus.restore();
        m_producedBefore = bus.counter("framesProduced");
    }
    void TearDown() override
    {
        m_zrncam.kill();
        m_zrncam.waitForFinished();
        bus.restore();
    }

    void start(const char* seconds = "600")
    {
        const double wait = static_cast<double>(outageWait.count()) * survival::timeFactor();
        m_zrncam.start(ZRNCAM_PATH, {"--plugin", ZRN_PLUGIN, "--json", "stream", "--keep-alive",
                                     "--seconds", seconds, "--wait", QString::number(wait)});
        ASSERT_TRUE(m_zrncam.waitForStarted());
        expectMore("framesSent", 5);
        std::this_thread::sleep_for(rateKnown);
    }

    /// Waits until a counter of the camera has risen so far.
    void expectMore(const char* counter, std::uint64_t count)
    {
        ASSERT_TRUE(bus.waitForCounter(counter, bus.counter(counter) + count))
            << counter << " stands still";
    }

    /// Waits until zrncam has told of the begin or the end of an outage.
    void expectNotice(const char* text)
    {
        const auto end = Clock::now() + patience;
        while (!m_notices.contains(text)) {
            ASSERT_LT(Clock::now(), end) << "no '" << text << "' in: " << m_notices.toStdString();
            m_zrncam.waitForReadyRead(100);
            m_notices += m_zrncam.readAllStandardError();
        }
    }

    QJsonObject finish()
    {
        EXPECT_TRUE(m_zrncam.waitForFinished(static_cast<int>(patience.count())));
        return QJsonDocument::fromJson(m_zrncam.readAllStandardOutput()).object();
    }
    QJsonObject interrupt()
    {
        ::kill(static_cast<pid_t>(m_zrncam.processId()), SIGINT);
        QJsonObject report = finish();
        EXPECT_EQ(m_zrncam.exitCode(), 130) << m_zrncam.readAllStandardError().toStdString();
        return report;
    }

    /// Expects one outage in all, and that every number that the camera gave to a frame is among
    /// the delivered or the missing ones.
    void expectOneOutage(const QJsonObject& report, const char* cause, const char* repair)
    {
        // At the ends of the stream: under way to the host, or sent before it grabbed.
        constexpr std::uint64_t mostAtTheEnds = 150;
        const QJsonArray outages = report[QLatin1String("outages")].toArray();
        ASSERT_EQ(outages.size(), 1);
        const QJsonObject outage = outages[0].toObject();
        EXPECT_EQ(outage[QLatin1String("cause")].toString(), QLatin1String(cause));
        EXPECT_EQ(outage[QLatin1String("repair")].toString(), QLatin1String(repair));
        EXPECT_GT(outage[QLatin1String("begin")].toDouble(), 0.0);
        EXPECT_GT(outage[QLatin1String("seconds")].toDouble(), 1.0);
        EXPECT_LE(outage[QLatin1String("missing")].toInt(),
                  report[QLatin1String("missing")].toInt());
        EXPECT_TRUE(outage[QLatin1String("missingIsExact")].toBool());
        EXPECT_TRUE(report[QLatin1String("missingIsExact")].toBool());

        const std::uint64_t produced = bus.counter("framesProduced") - m_producedBefore;
        const auto accounted = static_cast<std::uint64_t>(report[QLatin1String("frames")].toInt() +
                                                          report[QLatin1String("missing")].toInt());
        EXPECT_LE(accounted, produced);
        EXPECT_GE(accounted + mostAtTheEnds, produced);
    }

    VirtualCamera bus;
    QProcess m_zrncam;
    QByteArray m_notices;
    std::uint64_t m_producedBefore = 0;
};

TEST_F(KeepAlive, AQuietRunHasNoOutage)
{
    start("3");
    const QJsonObject report = finish();
    EXPECT_EQ(m_zrncam.exitCode(), 0);
    EXPECT_GT(report[QLatin1String("frames")].toInt(), 0);
    EXPECT_TRUE(report[QLatin1String("outages")].toArray().isEmpty());
}

TEST_F(KeepAlive, AReplugIsReconnected)
{
    start();
    bus.unplug();
    expectNotice("camera gone");
    bus.restore();
    expectNotice("repair: reconnected");
    expectOneOutage(interrupt(), "gone", "reconnected");
}

TEST_F(KeepAlive, ALongOutageIsCountedWithReserve)
{
    start();
    bus.unplug();
    expectNotice("camera gone");
    std::this_thread::sleep_for(std::chrono::seconds(6)); // more than trailers can count
    bus.restore();
    expectNotice("repair: reconnected, at least ");
    const QJsonObject report = interrupt();
    const QJsonArray outages = report[QLatin1String("outages")].toArray();
    ASSERT_EQ(outages.size(), 1);
    EXPECT_FALSE(outages[0].toObject()[QLatin1String("missingIsExact")].toBool(true));
    EXPECT_FALSE(report[QLatin1String("missingIsExact")].toBool(true));
}

TEST_F(KeepAlive, AHaltedEndpointIsRestarted)
{
    start();
    bus.tell("halt");
    expectNotice("repair: restarted");
    expectOneOutage(interrupt(), "silent", "restarted");
}

TEST_F(KeepAlive, FailedTransfersAreRestarted)
{
    start();
    // For every transfer in flight, however often a kernel tries each.
    bus.tell("transfer-fault", {{"kind", "protocol"}, {"count", 100'000}});
    expectNotice("camera silent");
    bus.tell("clear-faults");
    expectNotice("repair: restarted");
    expectOneOutage(interrupt(), "silent", "restarted");
}

TEST_F(KeepAlive, ACameraThatStaysSilentIsOpenedAnew)
{
    constexpr std::uint64_t restarts = 2;
    start();
    bus.tell("freeze");
    expectMore("streamStarts", restarts + 1);
    bus.tell("thaw");
    expectNotice("repair: reconnected");
    expectOneOutage(interrupt(), "silent", "reconnected");
}

TEST_F(KeepAlive, ACameraThatStaysAwayIsAFailure)
{
    constexpr int streamFailed = 6;
    start("8");
    bus.unplug();
    const QJsonObject report = finish();
    EXPECT_EQ(m_zrncam.exitCode(), streamFailed);
    const QJsonArray outages = report[QLatin1String("outages")].toArray();
    ASSERT_EQ(outages.size(), 1);
    EXPECT_EQ(outages[0].toObject()[QLatin1String("repair")].toString(), QStringLiteral("none"));
}

} // namespace
