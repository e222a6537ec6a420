// zrncam record on the fake driver: 64 x 48 pixels, two images a frame, a frame in 2 ms.

#include "client/recording.h"
#include "tool_run.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <numeric>

namespace
{

constexpr int imageBytes = 2 * (64 * 48 + 8); // of a frame

QJsonObject documentIn(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return QJsonDocument::fromJson(file.readAll()).object();
}

/// The numbers of the frames in a complete file.
std::vector<std::uint32_t> numbersIn(const QString& path)
{
    const zrn::Recording recording(path.toStdString());
    EXPECT_TRUE(recording.isComplete()) << path.toStdString();
    std::vector<std::uint32_t> numbers;
    for (int i = 0; i < recording.frameCount(); ++i) {
        numbers.push_back(recording.frame(i).step.number);
    }
    return numbers;
}

std::vector<std::uint32_t> numbersFrom(std::uint32_t first, int count)
{
    std::vector<std::uint32_t> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// Takes what no two runs have alike out of a document of sets; it is only looked at.
QJsonObject withoutTimes(QJsonObject object)
{
    for (const char* name : {"seconds", "secondsBefore", "rate", "bytes", "begin"}) {
        if (object.contains(QLatin1String(name))) {
            const QJsonValue value = object.take(QLatin1String(name));
            EXPECT_TRUE(value.isString() || value.toDouble(-1) >= 0) << name;
        }
    }
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        if (entry->isObject()) {
            *entry = withoutTimes(entry->toObject());
        } else if (entry->isArray()) {
            QJsonArray list;
            for (const QJsonValue item : entry->toArray()) {
                list += item.isObject() ? QJsonValue(withoutTimes(item.toObject())) : item;
            }
            *entry = list;
        }
    }
    return object;
}

class ZrncamRecord : public testing::Test
{
protected:
    QString path(const char* name) const { return folder.filePath(QLatin1String(name)); }
    QStringList files() const { return QDir(folder.path()).entryList(QDir::Files, QDir::Name); }
    QStringList words(const QStringList& more) const
    {
        return QStringList{"record", "-o", folder.path(), "--json"} + more;
    }
    ToolResult record(const QStringList& more) const { return ToolRun::of(words(more)); }
    /// Of the first camera.
    static QJsonObject setOf(const ToolResult& result, int set)
    {
        return result.json()[QLatin1String("sets")].toArray().at(set).toObject();
    }
    /// The path of its first file.
    static QString fileOf(const ToolResult& result, int set)
    {
        return setOf(result, set)
            .value(QLatin1String("files"))[0][QLatin1String("path")]
            .toString();
    }
    static int framesOf(const ToolResult& result)
    {
        return result.json()[QLatin1String("frames")].toInt(-1);
    }

    const QTemporaryDir folder;
};

} // namespace

TEST_F(ZrncamRecord, ReportsExactly)
{
    const ToolResult result = record({"--frames", "5"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(result.errors, "");
    const QJsonObject lost{{"camera", 0}, {"library", 0}, {"ring", 0}, {"queue", 0}};
    const auto partWith = [&lost](const QString& file) {
        return QJsonObject{{"files", QJsonArray{QJsonObject{{"path", file},
                                                            {"frames", 5},
                                                            {"missing", 0},
                                                            {"firstNumber", 0},
                                                            {"lastNumber", 4}}}},
                           {"frames", 5},
                           {"missing", 0},
                           {"lost", lost},
                           {"unwritten", 0},
                           {"failure", QJsonValue()}};
    };
    const QString file = path("recording_0001_ZR1001.zrnrec");
    QJsonObject set = partWith(file);
    set["set"] = path("recording_0001.json");
    const QJsonObject expected{{"camera", QJsonObject{{"serial", "ZR1001"},
                                                      {"serialNumber", "1001"},
                                                      {"sensorCount", 2},
                                                      {"width", 64},
                                                      {"height", 48}}},
                               {"exitCode", 0},
                               {"frames", 5},
                               {"missing", 0},
                               {"unwritten", 0},
                               {"lost", lost},
                               {"outages", QJsonArray()},
                               {"sets", QJsonArray{set}}};
    EXPECT_EQ(withoutTimes(result.json()), expected) << result.output.constData();
    EXPECT_EQ(result.json()["bytes"].toInt(), QFile(file).size());

    QJsonObject camera = partWith(QStringLiteral("recording_0001_ZR1001.zrnrec"));
    camera["serial"] = "ZR1001";
    camera["complete"] = true;
    const QJsonObject document{{"format", "zrncam-recording-set"},
                               {"version", 1},
                               {"complete", true},
                               {"triggers", QJsonArray()},
                               {"cameras", QJsonArray{camera}}};
    EXPECT_EQ(withoutTimes(documentIn(path("recording_0001.json"))), document);
    EXPECT_EQ(numbersIn(file), numbersFrom(0, 5));
    EXPECT_EQ(files(), (QStringList{"recording_0001.json", "recording_0001_ZR1001.zrnrec"}));
}

TEST_F(ZrncamRecord, TellsAReaderWhatItHasDone)
{
    const ToolResult result =
        ToolRun::of({"record", "-n", "3", "--name", "test", "-o", path("made/for/it")});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const QString base = path("made/for/it/test_0001");
    EXPECT_EQ(result.output.left(result.output.indexOf(" missing, ")),
              QStringLiteral("camera          ZR1001, 64 x 48\n"
                             "set             %1.json\n"
                             "file            %1_ZR1001.zrnrec: 3 frames, 0")
                  .arg(base)
                  .toUtf8());
    EXPECT_TRUE(result.output.endsWith(
        "frames          3\n"
        "missing         0\n"
        "lost            0 by the camera, 0 by libuvc, 0 by the ring, 0 by the disk\n"))
        << result.output.constData();
}

TEST_F(ZrncamRecord, SeveralCamerasMakeOneSet)
{
    for (const QStringList& choice :
         {QStringList{"--all"}, QStringList{"--serial", "1001", "--serial", "ZR1002"}}) {
        const ToolResult result = record(QStringList{"--frames", "20"} + choice);
        EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
        QStringList inReport;
        for (const QJsonValue camera : result.list()) {
            EXPECT_EQ(camera["frames"].toInt(), 20);
            inReport += camera["sets"][0]["files"][0]["path"].toString().section('/', -1);
            EXPECT_EQ(numbersIn(camera["sets"][0]["files"][0]["path"].toString()),
                      numbersFrom(0, 20));
        }
        EXPECT_EQ(inReport.size(), choice.size() == 1 ? 3 : 2);
        const QJsonObject document = documentIn(result.list().at(0)["sets"][0]["set"].toString());
        EXPECT_TRUE(document["complete"].toBool());
        QStringList inDocument;
        for (const QJsonValue camera : document["cameras"].toArray()) {
            inDocument += camera["files"][0]["path"].toString();
        }
        inReport.sort();
        EXPECT_EQ(inDocument, inReport);
    }
    EXPECT_EQ(QDir(folder.path()).entryList({"*_0002_*.zrnrec"}).size(), 2);
}

TEST_F(ZrncamRecord, ACameraThatIsNotThereLeavesTheOthers)
{
    const ToolResult result = record({"--frames", "3", "--serial", "77", "--serial", "1001"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.list().at(1)["frames"].toInt(), 3);
    EXPECT_TRUE(documentIn(path("recording_0001.json"))["complete"].toBool());
}

TEST_F(ZrncamRecord, LastsAsLongAsItIsTold)
{
    const ToolResult result = record({"--seconds", "3"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_GT(framesOf(result), 0);
    EXPECT_LE(setOf(result, 0)["seconds"].toDouble(4), 3);
}

TEST_F(ZrncamRecord, SignalsCloseTheFileWithItsIndex)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ToolRun run(words({}));
        run.startUntilGrab(5);
        run.send(signal);
        const ToolResult result = run.finish();
        EXPECT_EQ(result.exitCode, 130) << result.errors.constData();
        const QString file = fileOf(result, 0);
        EXPECT_GE(framesOf(result), 3);
        EXPECT_EQ(numbersIn(file), numbersFrom(0, framesOf(result)));
        EXPECT_TRUE(documentIn(setOf(result, 0)["set"].toString())["complete"].toBool());
    }
}

TEST_F(ZrncamRecord, GoesOnWithoutItsTerminalUnderNohup)
{
    ToolRun run(words({"-n", "200"}));
    run.under({"nohup"}).startUntilGrab(3);
    run.send(SIGHUP);
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(framesOf(result), 200);
}

TEST_F(ZrncamRecord, SegmentsFollowEachOtherWithoutAGap)
{
    const ToolResult result =
        record({"-n", "20", "--segment", QStringLiteral("%1B").arg(7 * imageBytes)});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(files(), (QStringList{"recording_0001.json", "recording_0001_ZR1001_001.zrnrec",
                                    "recording_0001_ZR1001_002.zrnrec",
                                    "recording_0001_ZR1001_003.zrnrec"}));
    EXPECT_EQ(numbersIn(path("recording_0001_ZR1001_001.zrnrec")), numbersFrom(0, 7));
    EXPECT_EQ(numbersIn(path("recording_0001_ZR1001_002.zrnrec")), numbersFrom(7, 7));
    EXPECT_EQ(numbersIn(path("recording_0001_ZR1001_003.zrnrec")), numbersFrom(14, 6));
    EXPECT_EQ(framesOf(result), 20);

    const ToolResult timed = record({"-n", "20", "--segment", "4ms"});
    std::vector<std::uint32_t> numbers;
    const QJsonArray parts = setOf(timed, 0)["files"].toArray();
    EXPECT_GT(parts.size(), 2);
    for (const QJsonValue file : parts) {
        EXPECT_LT(file["seconds"].toDouble(1), 0.004);
        const std::vector<std::uint32_t> more = numbersIn(file["path"].toString());
        numbers.insert(numbers.end(), more.begin(), more.end());
    }
    EXPECT_EQ(numbers, numbersFrom(0, 20));
}

TEST_F(ZrncamRecord, LinesAndSignalsAreTriggers)
{
    for (const bool isSignal : {false, true}) {
        ToolRun run(words({"--before", "10min", "--frames", "4", "--triggers", "2"}));
        run.start().waitForError("waiting for a trigger");
        for (const char* set : {"set 1 is complete\n", "set 2 begins\n"}) {
            if (isSignal) {
                run.send(SIGUSR1);
            } else {
                run.write("\n");
            }
            run.waitForError(set);
        }
        const ToolResult result = run.finish();
        EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
        ASSERT_EQ(result.json()["sets"].toArray().size(), 2) << result.output.constData();
        std::vector<std::uint32_t> numbers;
        for (int set = 0; set < 2; ++set) {
            EXPECT_GE(setOf(result, set)["frames"].toInt(), 4);
            EXPECT_EQ(documentIn(setOf(result, set)["set"].toString())["triggers"].toArray().size(),
                      1);
            for (const std::uint32_t number : numbersIn(fileOf(result, set))) {
                numbers.push_back(number);
            }
        }
        EXPECT_EQ(numbers, numbersFrom(numbers.at(0), framesOf(result))) << "before is all between";
    }
}

TEST_F(ZrncamRecord, WithoutATriggerThereIsNoFile)
{
    ToolRun run(words({"--before", "60min", "--memory", "1MB"}));
    run.start().waitForError("waiting for a trigger");
    run.waitForError("1.0 MB of memory do not hold 3600 s; --memory takes more");
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(framesOf(result), 0);
    EXPECT_TRUE(result.json()["sets"].toArray().isEmpty());
    EXPECT_EQ(files(), QStringList());
}

TEST_F(ZrncamRecord, OneTriggerIsForAllCameras)
{
    ToolRun run(words({"--all", "--before", "1", "--frames", "1", "--triggers", "1"}));
    run.start();
    for (const char* camera : {"0: ", "1: ", "2: "}) {
        run.waitForError((std::string(camera) + "waiting for a trigger").c_str());
    }
    run.write("now\n");
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(documentIn(path("recording_0001.json"))["cameras"].toArray().size(), 3);
    EXPECT_EQ(files().size(), 4);
}

TEST_F(ZrncamRecord, ASignalThatIsNoTriggerEndsNothing)
{
    ToolRun run(words({}));
    run.startUntilGrab(3);
    run.send(SIGUSR1);
    QThread::msleep(20);
    run.interrupt();
    EXPECT_EQ(run.finish().exitCode, 130);
}

TEST_F(ZrncamRecord, SetsTheCameraFirstAndTellsInTheFile)
{
    const ToolResult result = record({"-n", "1", "--exposure", "2ms", "--gain", "33"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const zrn::Recording recording(path("recording_0001_ZR1001.zrnrec").toStdString());
    const QJsonObject metadata =
        QJsonDocument::fromJson(QByteArray::fromStdString(recording.metadata())).object();
    EXPECT_EQ(metadata["serial"], "ZR1001");
    EXPECT_EQ(metadata["settings"], (QJsonObject{{"Exposure", 2000}, {"Gain", 33}}));
}

TEST_F(ZrncamRecord, MissingFramesAreCountedByPlace)
{
    const ToolResult result = ToolRun(words({"-n", "8"})).set("ZRN_FAKE_FAULT", "gap").finish();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(framesOf(result), 8);
    EXPECT_EQ(result.json()["missing"].toInt(), 3);
    const QJsonObject lost = result.json()["lost"].toObject();
    EXPECT_EQ(lost["camera"].toInt() + lost["ring"].toInt(), 3);
}

TEST_F(ZrncamRecord, GoesOnWhenASilentCameraIsBack)
{
    const ToolResult result =
        ToolRun(words({"-n", "12", "--wait", "20"})).set("ZRN_FAKE_FAULT", "dies").finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(framesOf(result), 12);
    EXPECT_GE(result.json()["outages"].toArray().size(), 1);
    EXPECT_TRUE(result.errors.contains("camera silent\n")) << result.errors.constData();
}

TEST_F(ZrncamRecord, ACameraThatStaysSilentIsAFailureAndItsFileWhole)
{
    const ToolResult silent = ToolRun(words({"--seconds", "0.3", "--wait", "20"}))
                                  .set("ZRN_FAKE_FAULT", "silent")
                                  .finish();
    EXPECT_EQ(silent.exitCode, 6);
    EXPECT_EQ(silent.errorMessage(), QStringLiteral("the camera delivered no frame"));
    EXPECT_EQ(files(), QStringList{"recording_0001.json"});
}

TEST_F(ZrncamRecord, AStreamThatCannotStartIsAFailureOfItsSet)
{
    const ToolResult result = ToolRun(words({})).set("ZRN_FAKE_FAULT", "no-start").finish();
    EXPECT_NE(result.exitCode, 0);
    EXPECT_EQ(files(), QStringList{"recording_0001.json"});
    const QJsonObject document = documentIn(path("recording_0001.json"));
    const QJsonValue camera = document["cameras"][0];
    EXPECT_EQ(camera["failure"].toString(), result.errorMessage());
    EXPECT_FALSE(result.errorMessage().isEmpty());
}

TEST_F(ZrncamRecord, AFullDiskIsNamedAndWhatIsWrittenIsRead)
{
    ToolRun run(words({}));
    const ToolResult result = run.set("ZRN_FAKE_FAULT", "no-period").limitFiles(10'240).finish();
    EXPECT_EQ(result.exitCode, 7);
    const QString file = path("recording_0001_ZR1001.zrnrec");
    EXPECT_TRUE(result.errorMessage().startsWith(file + QStringLiteral(": ")))
        << result.errors.constData();
    EXPECT_TRUE(result.errorMessage().contains(QLatin1String("could not be written")));
    EXPECT_GT(framesOf(result), 0);
    EXPECT_GT(result.json()["unwritten"].toInt(), 0);
    const zrn::Recording recording(file.toStdString());
    EXPECT_GE(recording.frameCount(), framesOf(result));
    EXPECT_TRUE(recording.damage().empty());
}

TEST_F(ZrncamRecord, ADiskThatIsTooSlowIsNamedAndWhatItLostIsCounted)
{
    // No memory to wait in, and frames as fast as they can be made.
    const ToolResult result = ToolRun(words({"--memory", "1B", "-n", "3000"}))
                                  .set("ZRN_FAKE_FAULT", "no-period")
                                  .finish();
    EXPECT_EQ(result.exitCode, 7);
    const int lost = result.json()["lost"].toObject()["queue"].toInt();
    EXPECT_GT(lost, 0);
    EXPECT_EQ(result.errorMessage(), QStringLiteral("the disk was too slow: it lost %1 frame%2")
                                         .arg(lost)
                                         .arg(lost == 1 ? "" : "s"));
    EXPECT_TRUE(result.errors.contains("the disk is too slow: frames are lost\n"));
    EXPECT_EQ(result.json()["missing"].toInt(), lost);
    EXPECT_EQ(framesOf(result), 3000);
    const std::vector<std::uint32_t> numbers = numbersIn(fileOf(result, 0));
    EXPECT_EQ(numbers.size(), 3000U);
    EXPECT_LE(numbers.back() - numbers.front(), 2999U + static_cast<unsigned>(lost));
}

TEST_F(ZrncamRecord, ATargetThatIsRemovedEndsIt)
{
    const QString target = path("target");
    ToolRun run({"record", "-o", target, "--json"});
    run.start();
    while (!QFile::exists(target + QStringLiteral("/recording_0001_ZR1001.zrnrec"))) {
        ASSERT_TRUE(run.isRunning());
        QThread::msleep(1);
    }
    EXPECT_TRUE(QDir().rename(target, path("elsewhere"))); // all of it at once
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_TRUE(result.errorMessage().startsWith(target + QStringLiteral(": the folder is gone")))
        << result.errors.constData();
    EXPECT_EQ(framesOf(result), 0);
    EXPECT_GT(result.json()["unwritten"].toInt(), 0);
}

TEST_F(ZrncamRecord, FilesAreNumberedAndNeverReplaced)
{
    QFile other(path("recording_0041_ZR5.zrnrec"));
    ASSERT_TRUE(other.open(QIODevice::WriteOnly));
    EXPECT_EQ(record({"-n", "1"}).exitCode, 0);
    EXPECT_EQ(record({"-n", "1"}).exitCode, 0);
    EXPECT_EQ(files(), (QStringList{"recording_0041_ZR5.zrnrec", "recording_0042.json",
                                    "recording_0042_ZR1001.zrnrec", "recording_0043.json",
                                    "recording_0043_ZR1001.zrnrec"}));
}

TEST_F(ZrncamRecord, WrongOptionsAreRefusedBeforeACameraIsOpened)
{
    for (const QStringList& wrong :
         {QStringList{"--segment", "1"}, QStringList{"--segment", "0B"},
          QStringList{"--segment", "-1GB"}, QStringList{"--segment", "1e30GB"},
          QStringList{"--segment", "10 min"}, QStringList{"--segment", "nanGB"},
          QStringList{"--memory", "10min"}, QStringList{"--memory", "much"},
          QStringList{"--triggers", "1"}, QStringList{"--seconds", "0"},
          QStringList{"--frames", "0"}, QStringList{"--name", "a/b"}, QStringList{"--name", ""},
          QStringList{"-o", "-"}, QStringList{"--newest"}, QStringList{"--before", "-1"}}) {
        const ToolResult result =
            ToolRun::of(QStringList{"--plugin", "/nonexistent", "record", "--json"} + wrong);
        EXPECT_EQ(result.exitCode, 2) << wrong.join(' ').toStdString();
        EXPECT_FALSE(result.errorMessage().isEmpty());
    }
    EXPECT_EQ(ToolRun::of({"record", "-o", "/proc/recordings"}).exitCode, 7);
}

TEST_F(ZrncamRecord, TheDocumentHasEveryOptionAndItsExamplesRun)
{
    QFile file(QStringLiteral(DOCUMENTS_DIR "/recording.md"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString document = QString::fromUtf8(file.readAll());
    const QString help = QString::fromUtf8(ToolRun::of({"record", "--help"}).output);
    QRegularExpression option("^  (?:-\\w,)?(--[\\w-]+)", QRegularExpression::MultilineOption);
    auto options = option.globalMatch(help.left(help.indexOf(QLatin1String("Options of every"))));
    EXPECT_TRUE(options.hasNext());
    while (options.hasNext()) {
        const QString name = options.next().captured(1);
        EXPECT_TRUE(name == QLatin1String("--help") || document.contains('`' + name + ' '))
            << name.toStdString();
    }

    const QRegularExpression row("^\\| `-.*\\| `zrncam (record .*)` \\|$",
                                 QRegularExpression::MultilineOption);
    int count = 0;
    for (auto rows = row.globalMatch(document); rows.hasNext(); ++count) {
        const QString example = rows.next().captured(1);
        ToolRun run(example.split(' '));
        run.under({"env", "-C", folder.path()}).startUntilGrab(3);
        if (example.contains(QLatin1String("--before"))) {
            run.waitForError("waiting for a trigger");
            run.write("\n");
            run.waitForError("set 1 begins");
        }
        run.interrupt();
        const ToolResult result = run.finish();
        EXPECT_TRUE(result.exitCode == 130 || result.exitCode == 0)
            << example.toStdString() << result.errors.constData();
    }
    EXPECT_EQ(count, document.count(QLatin1String("| `-")));
}
