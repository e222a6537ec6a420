#include "tool_run.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>

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

TEST(ZrncamOutput, SeveralCamerasMakeAnArrayAlsoWhenThereIsNone)
{
    for (const char* command : {"info", "stream"}) {
        const ToolResult result =
            ToolRun({"--all", "--json", command}).set("ZRN_FAKE_CAMERAS", "0").finish();
        EXPECT_EQ(result.exitCode, 4);
        const QJsonArray list = result.list();
        ASSERT_EQ(list.size(), 1) << result.output.constData();
        EXPECT_EQ(list[0][QLatin1String("exitCode")].toInt(), 4);
        EXPECT_FALSE(
            list[0][QLatin1String("error")][QLatin1String("message")].toString().isEmpty());
    }
    const ToolResult noPlugin =
        ToolRun::of({"--all", "--json", "--plugin", "/nonexistent", "info"});
    EXPECT_EQ(noPlugin.exitCode, 3);
    EXPECT_EQ(noPlugin.list().size(), 1);
}

TEST(ZrncamOutput, DriverTextsStayOffStandardOutput)
{
    const ToolResult quiet = ToolRun::of({"gain"});
    EXPECT_EQ(quiet.output, "16 (1 to 64)\n");
    EXPECT_EQ(quiet.errors, "");
    const ToolResult verbose = ToolRun::of({"gain", "--verbose"});
    EXPECT_EQ(verbose.output, "16 (1 to 64)\n");
    EXPECT_TRUE(verbose.errors.contains("cameras found:3"));
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
    EXPECT_EQ(process.readAllStandardError(),
              "zrncam: the result cannot be written: No space left on device\n");
}

TEST(ZrncamUsage, WrongCommandLinesExitWithTwo)
{
    for (const QStringList& arguments :
         {QStringList{}, QStringList{"nonsense"}, QStringList{"grab", "-n", "0"},
          QStringList{"stream", "--seconds", "-1"}, QStringList{"gain", "65536"},
          QStringList{"exposure", "-5"}, QStringList{"info", "--serial", "1", "--index", "0"},
          QStringList{"info", "--port", "1-1", "--index", "0"},
          QStringList{"info", "--all", "--index", "0"}, QStringList{"gain", "--all"},
          QStringList{"gain", "--serial", "1", "--serial", "2"}}) {
        EXPECT_EQ(ToolRun::of(arguments).exitCode, 2) << arguments.join(' ').toStdString();
    }
    EXPECT_EQ(ToolRun::of({"--help"}).exitCode, 0);
    EXPECT_EQ(ToolRun::of({"--version"}).exitCode, 0);
}

TEST(ZrncamUsage, MistakesMakeADocumentToo)
{
    for (const QStringList& arguments :
         {QStringList{}, QStringList{"nonsense"}, QStringList{"gain", "--nonsense"},
          QStringList{"gain", "x"}, QStringList{"set", "Gamma"}, QStringList{"gain", "--all"},
          QStringList{"doctor", "--root", "/nonexistent"},
          QStringList{"info", "--serial", "1", "--index", "0"}}) {
        const ToolResult result = ToolRun::of(arguments + QStringList{"--json"});
        EXPECT_EQ(result.exitCode, 2) << arguments.join(' ').toStdString();
        const QJsonObject json = result.json();
        EXPECT_EQ(json[QLatin1String("exitCode")].toInt(-1), 2);
        EXPECT_FALSE(result.errorMessage().isEmpty()) << result.output.constData();
    }
}

TEST(ZrncamUsage, TheNearestWordIsNamed)
{
    const auto errorsOf = [](const QStringList& arguments) {
        return ToolRun::of(arguments).errors;
    };
    EXPECT_EQ(errorsOf({"strem", "--seconds", "3"}),
              "zrncam: there is no command \"strem\"\n"
              "        did you mean stream? 'zrncam --help' shows what there is\n");
    EXPECT_EQ(errorsOf({"stream", "--second=3"}),
              "zrncam: there is no option --second\n"
              "        did you mean --seconds? 'zrncam stream --help' shows what there is\n");
    EXPECT_EQ(errorsOf({"pictures"}), "zrncam: there is no command \"pictures\"\n"
                                      "        'zrncam --help' shows what there is\n");
    EXPECT_EQ(errorsOf({"gain", "5", "6"}), "zrncam: gain takes no \"6\"\n"
                                            "        'zrncam gain --help' shows what there is\n");
}

TEST(ZrncamUsage, NumbersAreJudgedInWords)
{
    const auto mistakeIn = [](const QStringList& arguments) {
        const QByteArray errors = ToolRun::of(arguments).errors;
        return errors.left(errors.indexOf('\n'));
    };
    EXPECT_EQ(mistakeIn({"gain", "x"}), "zrncam: gain: VALUE: \"x\" is not a whole number");
    EXPECT_EQ(mistakeIn({"gain", "70000"}),
              "zrncam: gain: VALUE: 70000 is not in the range of 0 to 65535");
    EXPECT_EQ(mistakeIn({"exposure", "1.5us"}),
              "zrncam: exposure: VALUE: 1.5us is not a whole number of us");
    EXPECT_EQ(mistakeIn({"exposure", "2ft"}), "zrncam: exposure: VALUE: \"2ft\" is not a whole "
                                              "number of us, nor one with us, ms, s or min");
}

TEST(ZrncamUsage, EveryCommandsHelpShowsTheCommonOptionsAndAnExample)
{
    for (const char* command :
         {"list", "info", "exposure", "gain", "grab", "stream", "record", "get", "set",
          "properties", "settings", "command", "doctor", "verify"}) {
        const QByteArray help = ToolRun::of({command, "--help"}).output;
        EXPECT_TRUE(help.contains("\n  --json ")) << help.constData();
        EXPECT_TRUE(help.contains("\n  --serial SERIAL")) << help.constData();
        EXPECT_TRUE(help.contains(QByteArray("\n  zrncam ") + command)) << help.constData();
    }
}

TEST(ZrncamSeveral, EachHasAnObjectInTheArray)
{
    const ToolResult all = ToolRun::of({"info", "--all", "--json"});
    EXPECT_EQ(all.exitCode, 0) << all.errors.constData();
    ASSERT_EQ(all.list().size(), 3);
    EXPECT_EQ(all.list().at(1)[QLatin1String("camera")][QLatin1String("serial")].toString(),
              "ZR1002");
    EXPECT_EQ(all.list().at(1)[QLatin1String("exitCode")].toInt(-1), 0);
}

TEST(ZrncamSeveral, OneThatFailsDoesNotEndTheOthers)
{
    const QStringList arguments{"info", "--serial", "1001", "--serial", "77", "--serial", "ZR1002"};
    const ToolResult json = ToolRun::of(arguments + QStringList{"--json"});
    EXPECT_EQ(json.exitCode, 4);
    ASSERT_EQ(json.list().size(), 3);
    EXPECT_EQ(json.list().at(1)[QLatin1String("error")][QLatin1String("name")].toString(),
              "SerialNotFound");
    EXPECT_EQ(json.list().at(2)[QLatin1String("camera")][QLatin1String("serial")].toString(),
              "ZR1002");

    const ToolResult text = ToolRun::of(arguments);
    const QList<QByteArray> lines = text.output.trimmed().split('\n');
    EXPECT_TRUE(lines.last().startsWith("sum")) << text.output.constData();
    EXPECT_TRUE(lines.last().endsWith(" 2 cameras")) << text.output.constData();
    EXPECT_TRUE(lines[lines.size() - 3].startsWith("ZR77 ")) << text.output.constData();
    EXPECT_TRUE(text.errors.contains("zrncam: ZR77: ")) << text.errors.constData();
}

TEST(ZrncamSeveral, EachRowNamesItsCameraOnce)
{
    const auto linesOf = [](const QStringList& arguments) {
        return ToolRun::of(arguments).output.trimmed().split('\n');
    };
    const QList<QByteArray> one = linesOf({"info", "--serial", "1001", "--serial", "77"});
    EXPECT_EQ(one[one.size() - 3], "ZR1001                  done");
    EXPECT_EQ(one.last(), "sum                     1 camera");

    const QTemporaryDir folder;
    const QList<QByteArray> all = linesOf({"grab", "--all", "-o", folder.path()});
    EXPECT_EQ(all[all.size() - 2],
              "2                       ZR18446744073709551615: 1 frame, 0 missing");
    EXPECT_EQ(all.last(), "sum                     3 cameras, 3 frames, 0 missing");
}

TEST(ZrncamSeveral, TheSameSerialTwiceIsOneCamera)
{
    const ToolResult result =
        ToolRun::of({"info", "--serial", "1001", "--serial", "ZR1001", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(result.list().size(), 1);
}

TEST(ZrncamChoice, AnIndexPastTheEndIsNoCamera)
{
    const ToolResult result = ToolRun::of({"info", "--index", "3", "--json"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.json()[QLatin1String("error")].toObject()[QLatin1String("message")].toString(),
              "there is no camera 3; cameras found: 3");
    EXPECT_TRUE(result.errors.contains("indices go from 0 to 2")) << result.errors.constData();
}

TEST(ZrncamPlugin, AnUnusablePluginIsNamed)
{
    const ToolResult missing = ToolRun::of({"list", "--plugin", "/no/such/file.so", "--json"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_TRUE(missing.errors.contains("/no/such/file.so"));
    EXPECT_TRUE(missing.errors.contains("ZRNCAM_PLUGIN or with --plugin"))
        << missing.errors.constData();

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
    EXPECT_EQ(unknown.errorName(), QStringLiteral("SerialNotFound"));
}

TEST(ZrncamInfo, OneUnreadableFactLeavesTheOthers)
{
    const ToolResult result =
        ToolRun({"info", "--json"}).set("ZRN_FAKE_FAULT", "exposure-unreadable").finish();
    EXPECT_EQ(result.exitCode, 0);
    const QJsonObject json = result.json();
    EXPECT_EQ(json[QLatin1String("exposure")].toObject()[QLatin1String("code")].toInt(), 1038);
    EXPECT_EQ(json[QLatin1String("gain")].toInt(), 16);
    EXPECT_EQ(json[QLatin1String("pixelFormat")].toInt(), 272);
    EXPECT_EQ(json[QLatin1String("exposureRange")].toObject()[QLatin1String("maximum")].toInt(),
              500000);
}

TEST(ZrncamControls, SetShowsWhatTheCameraHolds)
{
    EXPECT_EQ(ToolRun::of({"exposure", "2500"}).output, "2500 us (100 to 500000)\n");
    EXPECT_EQ(ToolRun::of({"exposure", "2.5ms"}).output, "2500 us (100 to 500000)\n");
    EXPECT_EQ(ToolRun::of({"exposure", "0.1s"}).output, "100000 us (100 to 500000)\n");
    const ToolResult gain = ToolRun::of({"gain", "33", "--json"});
    EXPECT_EQ(gain.json()[QLatin1String("gain")].toInt(), 33);
    EXPECT_EQ(gain.json()[QLatin1String("maximum")].toInt(), 64);
}

TEST(ZrncamControls, RoundingIsTold)
{
    EXPECT_EQ(ToolRun::of({"exposure", "2345us"}).output,
              "2300 us (100 to 500000)\n"
              "the camera has made 2300 us of 2345 us: it counts in steps\n");
    const QJsonObject json = ToolRun::of({"exposure", "2345", "--json"}).json();
    EXPECT_EQ(json[QLatin1String("requested")].toInt(), 2345);
    EXPECT_EQ(json[QLatin1String("exposure")].toInt(), 2300);
}

TEST(ZrncamControls, RefusalsShowCodeMeaningAndRemedy)
{
    const ToolResult range = ToolRun::of({"exposure", "99", "--json"});
    EXPECT_EQ(range.exitCode, 5);
    EXPECT_EQ(range.errorName(), QStringLiteral("BadArgument"));
    EXPECT_EQ(range.json()[QLatin1String("error")].toObject()[QLatin1String("code")].toInt(), 780);

    const ToolResult refused =
        ToolRun({"gain", "20"}).set("ZRN_FAKE_FAULT", "gain-refused").finish();
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_EQ(refused.output, "");
    EXPECT_TRUE(refused.errors.contains("1040 GainWriteFailed"));
    EXPECT_EQ(refused.errors.count('\n'), 2) << refused.errors.constData();
}
