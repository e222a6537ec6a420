#include "tool_run.h"

#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

namespace
{

QString errorName(const ToolResult& result)
{
    return result.json()[QLatin1String("error")].toObject()[QLatin1String("name")].toString();
}

} // namespace

TEST(ZrncamList, ShowsEveryCamera)
{
    const ToolResult result = ToolRun::of({"list"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(result.output, "0  ZR1001, 64 x 48\n"
                             "1  ZR1002, 64 x 48\n"
                             "2  ZR18446744073709551615, 64 x 48\n");
}

TEST(ZrncamList, JsonKeepsSerialsAsTexts)
{
    const ToolResult result = ToolRun::of({"list", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    const QJsonObject json = result.json();
    EXPECT_EQ(json[QLatin1String("exitCode")].toInt(-1), 0);
    EXPECT_EQ(json[QLatin1String("driver")].toObject()[QLatin1String("version")].toString(),
              QStringLiteral("9.8.7"));
    const QJsonArray cameras = json[QLatin1String("cameras")].toArray();
    ASSERT_EQ(cameras.size(), 3);
    const QJsonObject last = cameras[2].toObject();
    EXPECT_EQ(last[QLatin1String("serial")].toString(), QStringLiteral("ZR18446744073709551615"));
    EXPECT_EQ(last[QLatin1String("serialNumber")].toString(),
              QStringLiteral("18446744073709551615"));
    EXPECT_EQ(last[QLatin1String("width")].toInt(), 64);
}

TEST(ZrncamList, OneBrokenCameraDoesNotHideTheOthers)
{
    const ToolResult result =
        ToolRun({"list", "--json"}).set("ZRN_FAKE_FAULT", "second-not-open").finish();
    EXPECT_EQ(result.exitCode, 5);
    const QJsonArray cameras = result.json()[QLatin1String("cameras")].toArray();
    ASSERT_EQ(cameras.size(), 3);
    EXPECT_EQ(cameras[1].toObject()[QLatin1String("code")].toInt(), 771);
    EXPECT_EQ(cameras[2].toObject()[QLatin1String("index")].toInt(), 2);
    EXPECT_TRUE(cameras[2].toObject().contains(QLatin1String("serial")));
}

TEST(ZrncamList, NoCameraIsItsOwnExitCode)
{
    const ToolResult result = ToolRun({"list", "--json"}).set("ZRN_FAKE_CAMERAS", "0").finish();
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_TRUE(result.json()[QLatin1String("cameras")].toArray().isEmpty());
    EXPECT_FALSE(result.json()[QLatin1String("error")]
                     .toObject()[QLatin1String("hint")]
                     .toString()
                     .isEmpty());
}

TEST(ZrncamOutput, DriverTextsStayOffStandardOutput)
{
    const ToolResult quiet = ToolRun::of({"gain"});
    EXPECT_EQ(quiet.output, "10 (1 to 255)\n");
    EXPECT_EQ(quiet.errors, "");
    const ToolResult verbose = ToolRun::of({"gain", "--verbose"});
    EXPECT_EQ(verbose.output, "10 (1 to 255)\n");
    EXPECT_TRUE(verbose.errors.contains("index:0  camCount:3"));
}

TEST(ZrncamOutput, AFullDiskIsReported)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ZRNCAM_PLUGIN"),
                       QStringLiteral(TEST_PLUGIN_DIR "/libfake_driver.so"));
    process.setProcessEnvironment(environment);
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(QStringLiteral(ZRNCAM_PATH), {"gain"});
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(process.exitCode(), 7);
}

TEST(ZrncamUsage, WrongCommandLinesExitWithTwo)
{
    for (const QStringList& arguments :
         {QStringList{}, QStringList{"nonsense"}, QStringList{"grab", "-n", "0"},
          QStringList{"stream", "--seconds", "-1"}, QStringList{"gain", "65536"},
          QStringList{"exposure", "-5"}, QStringList{"info", "--serial", "1", "--index", "0"}}) {
        EXPECT_EQ(ToolRun::of(arguments).exitCode, 2) << arguments.join(' ').toStdString();
    }
    EXPECT_EQ(ToolRun::of({"--help"}).exitCode, 0);
    EXPECT_EQ(ToolRun::of({"--version"}).exitCode, 0);
}

TEST(ZrncamPlugin, AnUnusablePluginIsNamed)
{
    const ToolResult missing = ToolRun::of({"list", "--plugin", "/no/such/file.so", "--json"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_TRUE(missing.errors.contains("/no/such/file.so"));

    const ToolResult wrong =
        ToolRun::of({"list", "--plugin", TEST_PLUGIN_DIR "/libwrong_iid.so", "--json"});
    EXPECT_EQ(wrong.exitCode, 3);
    EXPECT_TRUE(wrong.json()[QLatin1String("error")]
                    .toObject()[QLatin1String("message")]
                    .toString()
                    .contains(QLatin1String("Example.Other.Factory.v1.0")));
}

TEST(ZrncamSelection, BySerialByNumberAndByIndex)
{
    for (const QStringList& selection :
         {QStringList{"--serial", "ZR1002"}, QStringList{"--serial", "1002"},
          QStringList{"--index", "1"}}) {
        const ToolResult result = ToolRun::of(QStringList{"info", "--json"} + selection);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.json()[QLatin1String("camera")].toObject()[QLatin1String("serial")],
                  QStringLiteral("ZR1002"));
    }
    const ToolResult unknown = ToolRun::of({"info", "--serial", "77", "--json"});
    EXPECT_EQ(unknown.exitCode, 4);
    EXPECT_EQ(errorName(unknown), QStringLiteral("SerialNotFound"));
}

TEST(ZrncamInfo, OneUnreadableFactLeavesTheOthers)
{
    const ToolResult result =
        ToolRun({"info", "--json"}).set("ZRN_FAKE_FAULT", "exposure-unreadable").finish();
    EXPECT_EQ(result.exitCode, 0);
    const QJsonObject json = result.json();
    EXPECT_EQ(json[QLatin1String("exposure")].toObject()[QLatin1String("code")].toInt(), 1038);
    EXPECT_EQ(json[QLatin1String("gain")].toInt(), 10);
    EXPECT_EQ(json[QLatin1String("pixelFormat")].toInt(), 272);
    EXPECT_EQ(json[QLatin1String("exposureRange")].toObject()[QLatin1String("maximum")].toInt(),
              50000);
}

TEST(ZrncamControls, SetShowsWhatTheCameraHolds)
{
    EXPECT_EQ(ToolRun::of({"exposure", "2500"}).output, "2500 us (100 to 50000)\n");
    const ToolResult gain = ToolRun::of({"gain", "33", "--json"});
    EXPECT_EQ(gain.json()[QLatin1String("gain")].toInt(), 33);
    EXPECT_EQ(gain.json()[QLatin1String("maximum")].toInt(), 255);
}

TEST(ZrncamControls, RefusalsShowCodeMeaningAndRemedy)
{
    const ToolResult range = ToolRun::of({"exposure", "99", "--json"});
    EXPECT_EQ(range.exitCode, 5);
    EXPECT_EQ(errorName(range), QStringLiteral("BadArgument"));
    EXPECT_EQ(range.json()[QLatin1String("error")].toObject()[QLatin1String("code")].toInt(), 780);

    const ToolResult refused =
        ToolRun({"gain", "20"}).set("ZRN_FAKE_FAULT", "gain-refused").finish();
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_EQ(refused.output, "");
    EXPECT_TRUE(refused.errors.contains("1040 GainWriteFailed"));
    EXPECT_EQ(refused.errors.count('\n'), 2) << refused.errors.constData();
}

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
    EXPECT_TRUE(image.text(QStringLiteral("Creation Time")).endsWith(QLatin1Char('Z')));
    EXPECT_EQ(qGray(image.pixel(0, 0)), 1);
    EXPECT_EQ(qGray(image.pixel(3, 0)), 254);
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
    EXPECT_EQ(errorName(result), QStringLiteral("GrabTimeout"));
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

TEST(ZrncamStream, ARefusedStartIsReported)
{
    const ToolResult result =
        ToolRun({"stream", "--json"}).set("ZRN_FAKE_FAULT", "no-start").finish();
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_EQ(errorName(result), QStringLiteral("StreamStartFailed"));
}

TEST(ZrncamInterrupt, EndsTheStreamAndStillReports)
{
    ToolRun run({"stream", "--seconds", "3600", "--json"});
    run.start();
    QThread::msleep(500);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_GT(result.json()[QLatin1String("frames")].toInt(), 0);
    EXPECT_EQ(result.json()[QLatin1String("timeouts")].toInt(-1), 0);
}

TEST(ZrncamInterrupt, WakesAGrabThatWaits)
{
    ToolRun run({"grab", "-n", "1", "-o", "/tmp", "--wait", "3600000", "--json"});
    run.set("ZRN_FAKE_FAULT", "silent").start();
    QThread::msleep(500);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.json()[QLatin1String("frames")].toInt(-1), 0);
}

TEST(ZrncamProperties, GetAndSetUseTheTypeOfTheKey)
{
    EXPECT_EQ(ToolRun::of({"get", "Serial"}).output, "ZR1001\n");
    const ToolResult set = ToolRun::of({"set", "MaxGrabWaitTime", "250", "--json"});
    EXPECT_EQ(set.exitCode, 0);
    EXPECT_EQ(set.json()[QLatin1String("value")].toInt(), 250);
    EXPECT_EQ(set.json()[QLatin1String("unit")].toString(), QStringLiteral("ms"));
    EXPECT_EQ(ToolRun::of({"set", "EnableCheckGain", "off"}).output, "false\n");
}

TEST(ZrncamProperties, ValuesThatTheKeyCannotHoldAreUsageErrors)
{
    for (const QStringList& arguments :
         {QStringList{"set", "Gamma", "70000"}, QStringList{"set", "Gamma", "many"},
          QStringList{"set", "EnableCheckGain", "5"}, QStringList{"set", "Gamma"},
          QStringList{"get"}}) {
        EXPECT_EQ(ToolRun::of(arguments).exitCode, 2) << arguments.join(' ').toStdString();
    }
}

TEST(ZrncamProperties, UnknownKeysAreLeftToTheDriver)
{
    const ToolResult get = ToolRun::of({"get", "NoSuchKey", "--json"});
    EXPECT_EQ(get.exitCode, 5);
    EXPECT_EQ(errorName(get), QStringLiteral("NotSupported"));
    EXPECT_EQ(ToolRun::of({"set", "NoSuchKey", "1"}).exitCode, 5);
}

TEST(ZrncamProperties, ListShowsAllWithTheCodesOfThoseThatFail)
{
    const ToolResult result = ToolRun::of({"properties", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    const QJsonArray list = result.json()[QLatin1String("properties")].toArray();
    ASSERT_EQ(list.size(), 18);
    int failed = 0;
    for (const QJsonValue& entry : list) {
        const QJsonObject property = entry.toObject();
        EXPECT_NE(property.contains(QLatin1String("value")),
                  property.contains(QLatin1String("code")));
        failed += property[QLatin1String("code")].toInt() == 775 ? 1 : 0;
    }
    EXPECT_EQ(failed, 12); // the fake driver knows six keys
}

TEST(ZrncamCommand, RunsRefusesAndReports)
{
    EXPECT_EQ(ToolRun::of({"command", "ClearState"}).output, "done\n");
    EXPECT_EQ(ToolRun::of({"command", "NoSuchCommand"}).exitCode, 5);
    const ToolResult refused =
        ToolRun({"command", "ClearState", "--json"}).set("ZRN_FAKE_FAULT", "no-reset").finish();
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_EQ(errorName(refused), QStringLiteral("CommandFailed"));
}

namespace
{

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QString verdictOn(const ToolResult& result, const char* subject)
{
    for (const QJsonValue& entry : result.json()[QLatin1String("findings")].toArray()) {
        const QJsonObject finding = entry.toObject();
        if (finding[QLatin1String("subject")].toString() == QLatin1String(subject)) {
            return finding[QLatin1String("verdict")].toString();
        }
    }
    return {};
}

} // namespace

TEST(ZrncamDoctor, ReadsTheSystemFilesOfAnotherRoot)
{
    const QTemporaryDir root;
    const QStringList arguments{"doctor", "--json", "--root", root.path()};
    const ToolResult empty = ToolRun::of(arguments);
    EXPECT_EQ(empty.exitCode, 8);
    EXPECT_EQ(verdictOn(empty, "bus"), QStringLiteral("problem"));
    EXPECT_EQ(verdictOn(empty, "plugin"), QStringLiteral("ok"));

    const QString device = root.filePath(QStringLiteral("sys/bus/usb/devices/1-1/"));
    writeFile(device + QStringLiteral("idVendor"), "0483\n");
    writeFile(device + QStringLiteral("idProduct"), "5750\n");
    writeFile(device + QStringLiteral("busnum"), "1\n");
    writeFile(device + QStringLiteral("devnum"), "3\n");
    const ToolResult noNode = ToolRun::of(arguments);
    EXPECT_EQ(noNode.exitCode, 8);
    EXPECT_EQ(verdictOn(noNode, "bus"), QStringLiteral("ok"));
    EXPECT_EQ(verdictOn(noNode, "permission"), QStringLiteral("problem"));

    writeFile(root.filePath(QStringLiteral("dev/bus/usb/001/003")), {});
    const ToolResult usable = ToolRun::of(arguments);
    EXPECT_EQ(usable.exitCode, 0) << usable.output.constData();
    EXPECT_EQ(verdictOn(usable, "permission"), QStringLiteral("ok"));
    EXPECT_EQ(verdictOn(usable, "usbfs-memory"), QStringLiteral("unknown"));
}

TEST(ZrncamDoctor, NamesAPluginThatCannotBeUsed)
{
    const ToolResult result =
        ToolRun::of({"doctor", "--json", "--plugin", TEST_PLUGIN_DIR "/libwrong_iid.so"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_EQ(verdictOn(result, "plugin"), QStringLiteral("problem"));
}

TEST(ZrncamVerify, FindsADriverThatDoesNotKeepTheContract)
{
    const QTemporaryDir folder;
    const QString junit = folder.filePath(QStringLiteral("report.xml"));
    const ToolResult result = ToolRun::of({"verify", "--json", "--junit", junit});
    EXPECT_EQ(result.exitCode, 8);
    const QJsonObject json = result.json();
    EXPECT_GT(json[QLatin1String("failed")].toInt(), 0);
    EXPECT_GT(json[QLatin1String("passed")].toInt(), 0);
    QFile file(junit);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_TRUE(xml.contains("failures=\"" +
                             QByteArray::number(json[QLatin1String("failed")].toInt()) + "\""));
    EXPECT_EQ(xml.count("<failure "), json[QLatin1String("failed")].toInt());
    EXPECT_EQ(xml.count("<testcase "), json[QLatin1String("checks")].toArray().size());
}
