// zrncam as the model of a host that keeps a stream going whatever the camera does.

#include "virtual_bus.h"

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

using std::chrono::milliseconds;

constexpr int longestWaitMs = 20'000;

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

    void start(const char* seconds = "60")
    {
        m_zrncam.start(ZRNCAM_PATH, {"--plugin", ZRN_PLUGIN, "--json", "stream", "--keep-alive",
                                     "--seconds", seconds, "--wait", "300"});
        ASSERT_TRUE(m_zrncam.waitForStarted());
    }

    /// Waits until the camera has sent so many more frames.
    void expectFrames(std::uint64_t count = 30)
    {
        const auto end = std::chrono::steady_clock::now() + milliseconds(longestWaitMs);
        const std::uint64_t wanted = bus.counter("framesSent") + count;
        while (bus.counter("framesSent") < wanted) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "the stream does not come back";
            std::this_thread::sleep_for(milliseconds(20));
        }
    }

    QJsonObject finish()
    {
        EXPECT_TRUE(m_zrncam.waitForFinished(longestWaitMs));
        return QJsonDocument::fromJson(m_zrncam.readAllStandardOutput()).object();
    }
    QJsonObject interrupt()
    {
        ::kill(static_cast<pid_t>(m_zrncam.processId()), SIGINT);
        const QJsonObject report = finish();
        EXPECT_EQ(m_zrncam.exitCode(), 130) << m_zrncam.readAllStandardError().toStdString();
        return report;
    }

    /// Expects one outage, and that every number that the camera gave to a frame is among the
    /// delivered or the missing ones.
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
        EXPECT_GT(outage[QLatin1String("seconds")].toDouble(), 0.2);
        EXPECT_LE(outage[QLatin1String("missing")].toInt(),
                  report[QLatin1String("missing")].toInt());

        const std::uint64_t produced = bus.counter("framesProduced") - m_producedBefore;
        const auto accounted = static_cast<std::uint64_t>(report[QLatin1String("frames")].toInt() +
                                                          report[QLatin1String("missing")].toInt());
        EXPECT_LE(accounted, produced);
        EXPECT_GE(accounted + mostAtTheEnds, produced);
    }

    survival::VirtualBus bus;
    QProcess m_zrncam;
    std::uint64_t m_producedBefore = 0;
};

TEST_F(KeepAlive, AQuietRunHasNoOutage)
{
    start("1");
    const QJsonObject report = finish();
    EXPECT_EQ(m_zrncam.exitCode(), 0);
    EXPECT_GT(report[QLatin1String("frames")].toInt(), 0);
    EXPECT_TRUE(report[QLatin1String("outages")].toArray().isEmpty());
}

TEST_F(KeepAlive, AReplugIsReconnected)
{
    start();
    expectFrames();
    bus.unplug();
    std::this_thread::sleep_for(milliseconds(700));
    bus.restore();
    expectFrames();
    expectOneOutage(interrupt(), "gone", "reconnected");
}

TEST_F(KeepAlive, AHaltedEndpointIsRestarted)
{
    start();
    expectFrames();
    bus.tell("halt");
    expectFrames();
    expectOneOutage(interrupt(), "silent", "restarted");
}

TEST_F(KeepAlive, FailedTransfersAreRestarted)
{
    start();
    expectFrames();
    bus.tell("transfer-fault", {{"kind", "protocol"}, {"count", 100}});
    expectFrames();
    expectOneOutage(interrupt(), "silent", "restarted");
}

TEST_F(KeepAlive, ACameraThatStaysSilentIsOpenedAnew)
{
    start();
    expectFrames();
    bus.tell("freeze");
    std::this_thread::sleep_for(milliseconds(2000));
    bus.tell("thaw");
    expectFrames();
    expectOneOutage(interrupt(), "silent", "reconnected");
}

TEST_F(KeepAlive, ACameraThatStaysAwayIsAFailure)
{
    constexpr int streamFailed = 6;
    start("3");
    expectFrames();
    bus.unplug();
    const QJsonObject report = finish();
    EXPECT_EQ(m_zrncam.exitCode(), streamFailed);
    const QJsonArray outages = report[QLatin1String("outages")].toArray();
    ASSERT_EQ(outages.size(), 1);
    EXPECT_EQ(outages[0].toObject()[QLatin1String("repair")].toString(), QStringLiteral("none"));
}

} // namespace
