#include "tool_run.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>

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
    EXPECT_EQ(get.errorName(), QStringLiteral("NotSupported"));
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
        failed += property[QLatin1String("code")].toInt() == 779 ? 1 : 0;
    }
    EXPECT_EQ(failed, 3); // the capture period and both resolutions
}

TEST(ZrncamCommand, RunsRefusesAndReports)
{
    EXPECT_EQ(ToolRun::of({"command", "ClearState"}).output, "done\n");
    EXPECT_EQ(ToolRun::of({"command", "NoSuchCommand"}).exitCode, 5);
    const ToolResult refused =
        ToolRun({"command", "ClearState", "--json"}).set("ZRN_FAKE_FAULT", "no-reset").finish();
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_EQ(refused.errorName(), QStringLiteral("CommandFailed"));
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
    for (const QJsonValue entry : result.json()[QLatin1String("findings")].toArray()) {
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
    EXPECT_TRUE(result.output.contains("ZRNCAM_PLUGIN or with --plugin"))
        << result.output.constData();
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

TEST(ZrncamSettings, AreSavedAndLoaded)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("settings.json"));
    const ToolResult saved = ToolRun::of({"settings", "save", path});
    EXPECT_EQ(saved.exitCode, 0) << saved.errors.constData();
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    QByteArray json = file.readAll();
    EXPECT_TRUE(json.contains("\"exposureMicroseconds\": 1000,")) << json.constData();
    EXPECT_TRUE(json.contains("\"Gamma\": 100,")) << json.constData();

    json.replace("\"exposureMicroseconds\": 1000", "\"exposureMicroseconds\": 2345");
    json.replace("\"Gamma\": 100", "\"Gamma\": 4660");
    json.replace("\"BGain\": 60", "\"BGain\": 61");
    file.seek(0);
    file.write(json);
    file.close();
    const ToolResult loaded = ToolRun::of({"settings", "load", path, "--json"});
    EXPECT_EQ(loaded.exitCode, 0) << loaded.errors.constData();
    const QJsonObject settings = loaded.json()[QLatin1String("settings")].toObject();
    EXPECT_EQ(settings[QLatin1String("exposureMicroseconds")].toInt(), 2300) << "in steps";
    const QJsonObject properties = settings[QLatin1String("properties")].toObject();
    EXPECT_EQ(properties[QLatin1String("Gamma")].toInt(), 4660);
    EXPECT_EQ(properties[QLatin1String("BGain")].toInt(), 61);
    const QString made = QStringLiteral("exposure: the camera has made 2300 us of 2345 us");
    EXPECT_EQ(loaded.json()[QLatin1String("notes")].toArray(), QJsonArray{made});
    EXPECT_TRUE(ToolRun::of({"settings", "load", path}).output.endsWith(made.toUtf8() + '\n'));
}

TEST(ZrncamSettings, WhatIsOutsideOfACamerasRangesIsRefused)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("settings.json"));
    writeFile(path, R"({"format": "zrncam-settings", "version": 1, "gain": 65})");
    const ToolResult result = ToolRun::of({"settings", "load", path});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.errors.contains("gain 65 is not from 1 to 64, which this camera allows"))
        << result.errors.constData();
}

TEST(ZrncamSettings, GoToStandardOutput)
{
    const ToolResult saved = ToolRun::of({"settings", "save", "-"});
    EXPECT_EQ(saved.exitCode, 0) << saved.errors.constData();
    EXPECT_EQ(saved.json()[QLatin1String("exposureMicroseconds")].toInt(), 1000)
        << saved.output.constData();
    EXPECT_TRUE(saved.errors.contains("1000 us")) << saved.errors.constData();
    const ToolResult full = ToolRun({"settings", "save", "-"})
                                .under({"bash", "-c", R"("$0" "$@" >/dev/full)"})
                                .finish();
    EXPECT_EQ(full.exitCode, 7);
    EXPECT_TRUE(full.errors.contains("standard output: No space left on device"))
        << full.errors.constData();
}

TEST(ZrncamSettings, WhatIsMissingIsExplained)
{
    EXPECT_TRUE(ToolRun::of({"settings"}).errors.contains("ACTION is required: save or load"));
}

TEST(ZrncamSettings, AFileThatHoldsNoneIsRefusedBeforeACameraIsOpened)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("other.json"));
    writeFile(path, "{}");
    const ToolResult result =
        ToolRun({"settings", "load", path}).set("ZRN_FAKE_CAMERAS", "0").finish();
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.errors.contains("it holds no camera settings")) << result.errors.constData();
    EXPECT_EQ(ToolRun::of({"settings", "load", "/nonexistent"}).exitCode, 2);
    EXPECT_EQ(ToolRun::of({"settings", "keep", path}).exitCode, 2);
}

TEST(ZrncamDoctor, WritesAReportToSend)
{
    const QTemporaryDir root;
    const QString bundle = root.filePath(QStringLiteral("bundle.json"));
    const ToolResult result =
        ToolRun({"doctor", "--root", root.path(), "--bundle", bundle, "--json"})
            .set("LIBUSB_DEBUG", "0")
            .finish();
    EXPECT_EQ(result.exitCode, 8) << "as without it";
    QFile file(bundle);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject report = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(report[QLatin1String("findings")], result.json()[QLatin1String("findings")]);
    EXPECT_FALSE(report[QLatin1String("findings")].toArray().isEmpty());
    EXPECT_EQ(report[QLatin1String("environment")].toObject()[QLatin1String("LIBUSB_DEBUG")], "0");
    EXPECT_FALSE(report[QLatin1String("kernel")].toString().isEmpty());
    EXPECT_EQ(ToolRun::of({"doctor", "--bundle", "/proc/bundle"}).exitCode, 7);
}
