#include "tool_run.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

TEST(ZrncamGrab, WritesBothImagesWithTheirMetadata)
{
    const QTemporaryDir folder;
    const QString images = folder.filePath(QStringLiteral("new/folder"));
    const ToolResult result =
        ToolRun::of({"grab", "-n", "2", "-o", images, "--exposure", "700", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const QJsonObject json = result.json();
    EXPECT_EQ(json[QLatin1String("frames")].toInt(), 2);
    const QJsonArray list = json[QLatin1String("images")].toArray();
    ASSERT_EQ(list.size(), 4);
    EXPECT_EQ(QDir(images).entryList(QDir::Files),
              (QStringList{"ZR1001_0001_A.png", "ZR1001_0001_B.png", "ZR1001_0002_A.png",
                           "ZR1001_0002_B.png"}));

    QImageReader reader(list[3].toObject()[QLatin1String("path")].toString());
    EXPECT_EQ(reader.text(QStringLiteral("Serial")), QStringLiteral("ZR1001"));
    EXPECT_EQ(reader.text(QStringLiteral("Image")), QStringLiteral("B"));
    EXPECT_EQ(reader.text(QStringLiteral("Exposure")), QStringLiteral("700 us"));
    EXPECT_EQ(reader.text(QStringLiteral("FrameNumber")), QStringLiteral("1"));
    EXPECT_EQ(reader.text(QStringLiteral("Trailer")), QStringLiteral("0x0000000000000001"));
    const QImage image = reader.read();
    ASSERT_EQ(image.size(), QSize(64, 48));
    const QString date = list[3].toObject()[QLatin1String("utc")].toString();
    EXPECT_EQ(image.text(QStringLiteral("Creation Time")), date);
    EXPECT_LT(std::abs(QDateTime::fromString(date.left(23) + 'Z', Qt::ISODateWithMs)
                           .secsTo(QDateTime::currentDateTimeUtc())),
              3600)
        << date.toStdString();
    EXPECT_LT(list[0].toObject()[QLatin1String("utc")].toString(), date);
    EXPECT_EQ(qGray(image.pixel(0, 0)), 2);
    EXPECT_EQ(qGray(image.pixel(3, 1)), 9);
}

TEST(ZrncamGrab, RawFilesHoldTheBlockAsDelivered)
{
    const QTemporaryDir folder;
    const ToolResult result = ToolRun::of({"grab", "--raw", "-o", folder.path()});
    EXPECT_EQ(result.exitCode, 0);
    QFile file(folder.filePath(QStringLiteral("ZR1001_0001_A.raw")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.size(), 64 * 48 + 8);
}

TEST(ZrncamGrab, TellsWhatWasMissing)
{
    const QTemporaryDir folder;
    const ToolResult result =
        ToolRun({"grab", "-n", "8", "-o", folder.path()}).set("ZRN_FAKE_FAULT", "gap").finish();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.output.endsWith("\n8 frames, 3 missing\n")) << result.output.constData();
    EXPECT_EQ(result.output.count("_A.png\n"), 8) << result.output.constData();
}

TEST(ZrncamGrab, AFullDiskIsNamedAndWhatWasWrittenIsListed)
{
    for (const QStringList& format : {QStringList{}, QStringList{"--raw"}}) {
        const QTemporaryDir folder;
        ToolRun run(QStringList{"grab", "-o", folder.path(), "--json"} + format);
        const ToolResult result = run.limitFiles(0).finish();
        EXPECT_EQ(result.exitCode, 7);
        EXPECT_TRUE(result.errors.contains("File too large")) << result.errors.constData();
        EXPECT_EQ(result.json()[QLatin1String("images")].toArray().size(),
                  QDir(folder.path()).entryList(QDir::Files).size());
        EXPECT_EQ(result.json()[QLatin1String("frames")].toInt(-1), 0);
    }
}

TEST(ZrncamGrab, OnlyWrittenFramesAreCounted)
{
    const QTemporaryDir folder;
    ToolRun run({"grab", "-o", folder.path()});
    EXPECT_TRUE(run.limitFiles(0).finish().output.endsWith("0 of 1 frame written, 0 missing\n"));
    EXPECT_TRUE(
        ToolRun::of({"grab", "-o", folder.path()}).output.endsWith("\n1 frame, 0 missing\n"));
}

TEST(ZrncamGrab, AnUnwritableFolderIsItsOwnExitCode)
{
    EXPECT_EQ(ToolRun::of({"grab", "-o", "/proc/images"}).exitCode, 7);
}

TEST(ZrncamGrab, ASilentCameraEndsTheGrab)
{
    const QTemporaryDir folder;
    const ToolResult result = ToolRun({"grab", "-o", folder.path(), "--wait", "10", "--json"})
                                  .set("ZRN_FAKE_FAULT", "silent")
                                  .finish();
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_EQ(result.errorName(), QStringLiteral("GrabTimeout"));
    EXPECT_TRUE(result.errors.contains("--wait")) << result.errors.constData();
    EXPECT_FALSE(result.errors.contains("MaxGrabWaitTime")) << result.errors.constData();
    EXPECT_TRUE(QDir(folder.path()).entryList(QDir::Files).isEmpty());
}

TEST(ZrncamStream, AccountsForFramesRateGapsAndLatency)
{
    const ToolResult result =
        ToolRun({"stream", "--seconds", "0.5", "--json"}).set("ZRN_FAKE_FAULT", "gap").finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const QJsonObject json = result.json();
    EXPECT_GT(json[QLatin1String("frames")].toInt(), 5);
    EXPECT_GT(json[QLatin1String("measuredRate")].toDouble(), 0.0);
    EXPECT_TRUE(json[QLatin1String("firstFrame")].toString().endsWith(QLatin1Char('Z')));
    EXPECT_EQ(json[QLatin1String("reportedRate")].toDouble(), 500.0);
    EXPECT_EQ(json[QLatin1String("gaps")].toInt(), 1);
    EXPECT_EQ(json[QLatin1String("missing")].toInt(), 3);
    EXPECT_EQ(json[QLatin1String("timeouts")].toInt(), 0);
    const QJsonObject latency = json[QLatin1String("grabLatencyMs")].toObject();
    EXPECT_GE(latency[QLatin1String("p50")].toDouble(), 2.0);
    EXPECT_GE(latency[QLatin1String("p99")].toDouble(), latency[QLatin1String("p50")].toDouble());
    EXPECT_GE(latency[QLatin1String("max")].toDouble(), latency[QLatin1String("p99")].toDouble());
}

TEST(ZrncamStream, CountsTimeoutsAndSplitFailures)
{
    const ToolResult silent = ToolRun({"stream", "--seconds", "0.2", "--wait", "20", "--json"})
                                  .set("ZRN_FAKE_FAULT", "silent")
                                  .finish();
    EXPECT_EQ(silent.exitCode, 6);
    EXPECT_GT(silent.json()[QLatin1String("timeouts")].toInt(), 1);
    EXPECT_EQ(silent.json()[QLatin1String("frames")].toInt(-1), 0);

    const ToolResult split = ToolRun({"stream", "--seconds", "0.1", "--json"})
                                 .set("ZRN_FAKE_FAULT", "split-fails")
                                 .finish();
    EXPECT_EQ(split.exitCode, 6);
    EXPECT_GT(split.json()[QLatin1String("splitFailures")].toInt(), 1);
}

TEST(ZrncamStream, FramesThatEndEarlyAreAFailure)
{
    const ToolResult result =
        ToolRun({"stream", "--seconds", "1.5", "--json"}).set("ZRN_FAKE_FAULT", "dies").finish();
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_EQ(result.json()[QLatin1String("frames")].toInt(), 6);
    EXPECT_TRUE(result.errors.contains("the frames ended early")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("--keep-alive")) << result.errors.constData();
}

TEST(ZrncamStream, ARefusedStartIsReported)
{
    const ToolResult result =
        ToolRun({"stream", "--json"}).set("ZRN_FAKE_FAULT", "no-start").finish();
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_EQ(result.errorName(), QStringLiteral("StreamStartFailed"));
}

TEST(ZrncamInterrupt, EndsTheStreamAndStillReports)
{
    ToolRun run({"stream", "--seconds", "3600", "--json"});
    run.startUntilGrab(2);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_GT(result.json()[QLatin1String("frames")].toInt(), 0);
    EXPECT_EQ(result.json()[QLatin1String("timeouts")].toInt(-1), 0);
}

TEST(ZrncamInterrupt, TwoSignalsAtOnceAreOneRequest)
{
    ToolRun run({"stream", "--seconds", "3600", "--json"});
    run.startUntilGrab(2);
    run.send(SIGTERM);
    QThread::msleep(1);
    run.send(SIGTERM);
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_GT(result.json()[QLatin1String("frames")].toInt(), 0) << result.output.constData();
}

TEST(ZrncamInterrupt, ALaterSignalEndsWhatHangs)
{
    ToolRun run({"info", "--verbose", "--json"});
    run.set("ZRN_FAKE_FAULT", "hangs").start().waitForError("cameras found");
    run.interrupt();
    QThread::msleep(100);
    run.interrupt();
    QThread::msleep(1100);
    EXPECT_TRUE(run.isRunning());
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.output, "");
}

TEST(ZrncamInterrupt, WakesAGrabThatWaits)
{
    ToolRun run({"grab", "-n", "1", "-o", "/tmp", "--wait", "3600000", "--json"});
    run.set("ZRN_FAKE_FAULT", "silent").startUntilGrab(1);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.json()[QLatin1String("frames")].toInt(-1), 0);
}
