#include "client/recording.h"
#include "tool_run.h"
#include "virtual_camera.h"

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>

// The tool on the built driver and on virtual cameras, the stock USB libraries in between.

namespace
{

ToolResult runVirtually(const QStringList& arguments)
{
    return ToolRun(arguments).set("ZRNCAM_PLUGIN", QStringLiteral(DRIVER_PATH)).finish();
}

/// A camera of a run that has this folder for its temporary files.
VirtualCamera cameraOfRunIn(const QString& folder, std::size_t index = 0)
{
    const QDeadlineTimer end(60000);
    while (!end.hasExpired()) {
        QDirIterator sockets(folder, {QStringLiteral("control")}, QDir::System,
                             QDirIterator::Subdirectories);
        if (sockets.hasNext()) {
            try {
                return VirtualCamera(sockets.next().toStdString(), index);
            } catch (const std::system_error&) { // nobody listens yet
            }
        }
        QThread::msleep(1);
    }
    throw std::runtime_error("no control socket in " + folder.toStdString());
}

} // namespace

TEST(ZrncamVirtual, ListsEveryCamera)
{
    const ToolResult result =
        runVirtually({"--virtual=type0,serial=7", "--virtual=type2,serial=18446744073709551615",
                      "--virtual=type5,serial=12", "list", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    QStringList serials;
    for (const QJsonValue camera : result.json()[QLatin1String("cameras")].toArray()) {
        serials += camera.toObject()[QLatin1String("serialNumber")].toString();
    }
    // The order of the ports.
    EXPECT_EQ(serials, (QStringList{"7", "18446744073709551615", "12"}));
}

TEST(ZrncamVirtual, WithoutAModelThereIsOneCamera)
{
    const ToolResult result = runVirtually({"--virtual", "list", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(result.json()[QLatin1String("cameras")].toArray().size(), 1);
}

TEST(ZrncamVirtual, AnUnknownModelFails)
{
    const ToolResult result = runVirtually({"--virtual=nonsense", "list", "--json"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.errorMessage().contains(QLatin1String("no camera model 'nonsense'")))
        << result.output.constData();
}

TEST(ZrncamVirtual, CamerasThatCannotStartMakeADocumentToo)
{
    const ToolResult result =
        ToolRun({"--virtual", "list", "--json"}).set("TMPDIR", "/nonexistent").finish();
    EXPECT_EQ(result.exitCode, 9);
    EXPECT_FALSE(result.errorMessage().isEmpty()) << result.output.constData();
}

TEST(ZrncamVirtual, AnIndexPastTheEndIsNoCamera)
{
    const ToolResult result = runVirtually({"--virtual", "--virtual", "gain", "--index", "3"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.errors,
              "zrncam: there is no camera 3; cameras on the bus: 2\n"
              "        indices go from 0 to 1; 'zrncam list' shows the cameras on the bus\n");
}

TEST(ZrncamVirtual, WhatIsNotOnTheBusIsShownByList)
{
    for (const QStringList& choice :
         {QStringList{"--port", "9-9"}, QStringList{"--serial", "ZR404"}}) {
        const ToolResult result = runVirtually(QStringList{"--virtual", "gain"} + choice);
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_TRUE(result.errors.endsWith("; 'zrncam list' shows them\n"))
            << result.errors.constData();
    }
}

TEST(ZrncamVirtual, NobodyReadsTheLibrariesNotesWhoDidNotAsk)
{
    const QStringList stream{
        "--virtual=type2,sizes=320x240,rate=0", "stream", "--seconds", "0.5", "--wait", "50"};
    const ToolResult quiet = runVirtually(stream);
    EXPECT_EQ(quiet.exitCode, 6);
    EXPECT_EQ(quiet.errors,
              "zrncam: the camera delivered no frame\n"
              "        check the cable; 'zrncam doctor' looks for the usual causes\n");
    const ToolResult verbose = runVirtually(stream + QStringList{"-v"});
    EXPECT_TRUE(verbose.errors.contains("attempt to claim")) << verbose.errors.constData();
    EXPECT_TRUE(verbose.errors.contains("try lock grab event failed"))
        << verbose.errors.constData();
}

TEST(ZrncamVirtual, ASlowStreamHasNotEndedEarly)
{
    // Half a frame a second, and 1.5 s without one at the end.
    const ToolResult result = runVirtually(
        {"--virtual=type2,sizes=320x240,rate=0.5", "stream", "--seconds", "5.6", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_GT(result.json()[QLatin1String("timeouts")].toInt(), 0);
}

TEST(ZrncamVirtual, GrabsBothImages)
{
    const QTemporaryDir folder;
    const ToolResult result = runVirtually(
        {"--virtual=type2,serial=5", "grab", "-n", "2", "-o", folder.path(), "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const QJsonArray images = result.json()[QLatin1String("images")].toArray();
    ASSERT_EQ(images.size(), 4);
    for (const QJsonValue& entry : images) {
        QImageReader reader(entry.toObject()[QLatin1String("path")].toString());
        EXPECT_EQ(reader.text(QStringLiteral("Serial")), QStringLiteral("ZR5"));
        const QImage image = reader.read();
        EXPECT_EQ(image.size(), QSize(1280, 1024));
        EXPECT_NE(image, QImage(image.size(), image.format()));
    }
}

TEST(ZrncamVirtual, ASingleImageIsLetteredByTheSensorCount)
{
    const QTemporaryDir folder;
    const ToolResult result =
        runVirtually({"--virtual=type5", "grab", "-o", folder.path(), "--json"});
    const QJsonArray images = result.json()[QLatin1String("images")].toArray();
    ASSERT_EQ(images.size(), 1);
    EXPECT_EQ(images[0].toObject()[QLatin1String("image")].toString(), QStringLiteral("A"));
}

TEST(ZrncamVirtual, StreamsAndMeasures)
{
    const ToolResult result =
        runVirtually({"--virtual=type1,sizes=320x240", "stream", "--seconds", "12", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    const QJsonObject json = result.json();
    EXPECT_GT(json[QLatin1String("frames")].toInt(), 5);
    EXPECT_GT(json[QLatin1String("measuredRate")].toDouble(), 0.0);
    EXPECT_EQ(json[QLatin1String("repeated")].toInt(-1), 0);
    EXPECT_EQ(json[QLatin1String("restarts")].toInt(-1), 0);

    const QJsonObject times = json[QLatin1String("times")].toObject();
    EXPECT_EQ(times[QLatin1String("source")].toString(), QStringLiteral("payload"));
    EXPECT_NEAR(times[QLatin1String("periodMs")].toDouble(), 1000.0 / 30, 2.0);
    EXPECT_GT(times[QLatin1String("transferMs")][QLatin1String("p50")].toDouble(-1), 0.0);
    EXPECT_GT(times[QLatin1String("jitterMs")][QLatin1String("max")].toDouble(-1), 0.0);
    EXPECT_EQ(times[QLatin1String("frames")].toInt(), json[QLatin1String("frames")].toInt());
    EXPECT_TRUE(times[QLatin1String("cameraJitterMs")].isObject());
    EXPECT_GT(times[QLatin1String("capturedToSentMs")][QLatin1String("p50")].toDouble(-1), 0.0);
    // Its clock is the machine's.
    const QJsonObject drift = times[QLatin1String("drift")].toObject();
    EXPECT_NEAR(drift[QLatin1String("ppm")].toDouble(1e9), 0.0, 20'000.0);
    EXPECT_GT(drift[QLatin1String("error")].toDouble(), 0.0);
    const QJsonObject lost = json[QLatin1String("lost")].toObject();
    EXPECT_EQ(lost[QLatin1String("camera")].toInt() + lost[QLatin1String("library")].toInt() +
                  lost[QLatin1String("ring")].toInt(),
              json[QLatin1String("missing")].toInt(-1));
}

TEST(ZrncamVirtual, AVideoHasTheRateThatTheCameraAnnounces)
{
    const ToolResult result =
        runVirtually({"--virtual=type1,sizes=320x240", "grab", "-n", "2", "-o", "-", "--y4m"});
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_EQ(result.output.left(result.output.indexOf(" Ip ")), "YUV4MPEG2 W320 H480 F30:1");
}

TEST(ZrncamVirtual, ControlsAndPropertiesReachTheCamera)
{
    EXPECT_EQ(runVirtually({"--virtual=type2", "exposure", "4321"}).output.left(7), "4321 us");
    EXPECT_EQ(runVirtually({"--virtual=type2", "gain", "77"}).output.left(3), "77 ");
    EXPECT_EQ(runVirtually({"--virtual=type2", "set", "GBGain", "200"}).output, "200\n");
    EXPECT_EQ(runVirtually({"--virtual=type2", "command", "ClearState"}).output, "done\n");
    EXPECT_EQ(runVirtually({"--virtual=type0", "command", "ClearState"}).exitCode, 5);
}

TEST(ZrncamVirtual, TheDoctorFindsAUsableCamera)
{
    const ToolResult result = runVirtually({"--virtual=type2", "doctor", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.output.constData();
    EXPECT_TRUE(result.output.contains("the driver guards this process"))
        << result.output.constData();
}

TEST(ZrncamVirtual, ASlowPortNamesTheRateThatItAllows)
{
    const char* const warning = "which carries about 15 frames/s of 1280 x 1024; it offers 60";
    const ToolResult info = runVirtually({"--virtual=type2,speed=high", "info"});
    EXPECT_TRUE(info.output.contains("480 Mbit/s at port 1-1")) << info.output.constData();
    EXPECT_TRUE(info.output.contains(warning)) << info.output.constData();
    const ToolResult doctor = runVirtually({"--virtual=type2,speed=high", "doctor"});
    EXPECT_EQ(doctor.exitCode, 0);
    EXPECT_TRUE(doctor.output.contains(warning)) << doctor.output.constData();
    const ToolResult fast = runVirtually({"--virtual=type2", "info", "--json"});
    const QJsonObject usb = fast.json()[QLatin1String("usb")].toObject();
    EXPECT_EQ(usb[QLatin1String("megabits")].toInt(), 5000);
    EXPECT_FALSE(usb.contains(QLatin1String("warning")));
}

TEST(ZrncamDoctor, AsksTheDriverForItsGuardsWithoutACamera)
{
    ToolRun run({"doctor", "--json"});
    const ToolResult result =
        run.set("ZRNCAM_PLUGIN", QStringLiteral(DRIVER_PATH)).start().finish();
    EXPECT_TRUE(result.output.contains("the driver guards this process"))
        << result.output.constData();
}

/// What the doctor says of the memory of transfers; empty if it says nothing.
QString transferMemoryOf(const ToolResult& result)
{
    for (const QJsonValue finding : result.json()[QLatin1String("findings")].toArray()) {
        if (finding[QLatin1String("subject")] == QLatin1String("usbfs-memory")) {
            return finding[QLatin1String("message")].toString();
        }
    }
    return {};
}

TEST(ZrncamVirtual, TheDoctorAsksTheCameraForItsPayloadSize)
{
    const ToolResult small = runVirtually({"--virtual=type2", "doctor", "--json"});
    EXPECT_TRUE(transferMemoryOf(small).startsWith(QLatin1String("the transfers take 13 MiB;")))
        << small.output.constData();
    const ToolResult large =
        runVirtually({"--virtual=type2,sizes=320x240,payload=1048576", "doctor", "--json"});
    EXPECT_TRUE(transferMemoryOf(large).startsWith(QLatin1String("the transfers take 100 MiB;")))
        << large.output.constData();
}

TEST(ZrncamVirtual, CtrlCEndsTheStreamInOrder)
{
    // Under zrnsim at once, as there is one control socket then.
    ToolRun run({"stream", "--seconds", "3600", "--json"});
    run.under({ZRNSIM_PATH, "--camera", "type1,sizes=320x240", "--"});
    const QTemporaryDir folder;
    run.set("ZRNCAM_PLUGIN", QStringLiteral(DRIVER_PATH)).set("TMPDIR", folder.path()).start();
    EXPECT_TRUE(cameraOfRunIn(folder.path()).waitForCounter("framesSent", 45));
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130) << result.errors.constData();
    EXPECT_GT(result.json()[QLatin1String("frames")].toInt(), 0);
    EXPECT_GT(result.json()[QLatin1String("reportedRate")].toDouble(), 0.0);
}

/// Numbers of the frames that have left a camera as a whole, in their order.
std::vector<std::uint32_t> numbersSentBy(const VirtualCamera& camera)
{
    std::vector<std::uint32_t> numbers;
    for (const SentFrame& frame : camera.sentFrames()) {
        if (frame.complete) {
            numbers.push_back(static_cast<std::uint32_t>(frame.request.frameNumber));
        }
    }
    return numbers;
}

/// Numbers of the frames in the one file of a camera's report.
std::vector<std::uint32_t> numbersRecorded(const QJsonObject& camera)
{
    const QJsonArray sets = camera[QLatin1String("sets")].toArray();
    const QJsonArray files = sets[0][QLatin1String("files")].toArray();
    EXPECT_EQ(files.size(), 1);
    const zrn::Recording recording(files[0][QLatin1String("path")].toString().toStdString());
    EXPECT_TRUE(recording.isComplete());
    EXPECT_EQ(recording.frameCount(), camera[QLatin1String("frames")].toInt());
    std::vector<std::uint32_t> numbers;
    for (int i = 0; i < recording.frameCount(); ++i) {
        numbers.push_back(recording.frame(i).step.number);
    }
    return numbers;
}

/// How recorded frames lie among those that were sent.
struct Comparison {
    std::ptrdiff_t found = 0; ///< in the order in which they were sent
    std::ptrdiff_t lost = 0;  ///< sent between two that were found
    std::ptrdiff_t left = 0;  ///< sent after the last one that was found
};

Comparison compare(const std::vector<std::uint32_t>& recorded,
                   const std::vector<std::uint32_t>& sent)
{
    Comparison comparison;
    auto next = sent.begin();
    for (const std::uint32_t number : recorded) {
        // Of the first numbers no more is certain than their low bits.
        const auto place = std::find_if(next, sent.end(), [number](std::uint32_t other) {
            return ((number ^ other) & 0xff) == 0;
        });
        if (place == sent.end()) {
            break;
        }
        comparison.lost += comparison.found > 0 ? place - next : 0;
        ++comparison.found;
        next = place + 1;
    }
    comparison.left = sent.end() - next;
    return comparison;
}

TEST(ZrncamVirtual, RecordsTwoCamerasOneOfWhichIsUnpluggedTwice)
{
    const QTemporaryDir folder;
    const QTemporaryDir recordings;
    const QString model = QStringLiteral("type2,sizes=320x240,rate=20,serial=%1");
    ToolRun run({"record", "--all", "-o", recordings.path(), "--json"});
    run.set("ZRNCAM_PLUGIN", QStringLiteral(DRIVER_PATH))
        .set("TMPDIR", folder.path())
        .under({ZRNSIM_PATH, "--camera", model.arg(7), "--camera", model.arg(8), "--"})
        .start();
    VirtualCamera stays = cameraOfRunIn(folder.path());
    VirtualCamera leaves = cameraOfRunIn(folder.path(), 1);
    constexpr std::uint64_t some = 15;
    EXPECT_TRUE(stays.waitForCounter("framesSent", some));
    EXPECT_TRUE(leaves.waitForCounter("framesSent", some));
    leaves.unplug();
    run.waitForError("camera gone");
    leaves.restore();
    run.waitForError("repair: reconnected");
    EXPECT_TRUE(leaves.waitForCounter("framesSent", leaves.counter("framesSent") + some));
    leaves.unplug(); // for good
    EXPECT_TRUE(stays.waitForCounter("framesSent", stays.counter("framesSent") + 2 * some));
    const std::vector<std::uint32_t> sent = numbersSentBy(stays);
    const std::vector<std::uint32_t> sentByOther = numbersSentBy(leaves);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130) << result.errors.constData();
    const QJsonArray cameras = result.list();
    ASSERT_EQ(cameras.size(), 2) << result.output.constData();

    // What the first camera sent since its first recorded frame is recorded, or counted as missing.
    const QJsonObject first = cameras[0].toObject();
    EXPECT_EQ(first[QLatin1String("exitCode")].toInt(), 130);
    EXPECT_TRUE(first[QLatin1String("outages")].toArray().isEmpty());
    const std::vector<std::uint32_t> recorded = numbersRecorded(first);
    ASSERT_FALSE(recorded.empty());
    const int missing = first[QLatin1String("missing")].toInt();
    EXPECT_EQ(recorded.size() + static_cast<std::size_t>(missing),
              recorded.back() - recorded.front() + 1);
    const Comparison inLog = compare(recorded, sent);
    EXPECT_LE(inLog.lost + inLog.left, missing);
    EXPECT_GE(inLog.found, std::ptrdiff_t{2 * some} - missing);

    // The other one's are those that it sent, in their order, before and after the unplugging.
    const QJsonObject second = cameras[1].toObject();
    EXPECT_EQ(second[QLatin1String("exitCode")].toInt(), 6);
    EXPECT_EQ(second[QLatin1String("error")][QLatin1String("message")].toString(),
              QStringLiteral("the camera was lost and did not return"));
    EXPECT_EQ(second[QLatin1String("outages")].toArray().size(), 2);
    const std::vector<std::uint32_t> others = numbersRecorded(second);
    EXPECT_EQ(compare(others, sentByOther).found, static_cast<std::ptrdiff_t>(others.size()));
    EXPECT_GT(others.size(), some);
}

TEST(ZrncamVirtual, AWatchTellsWhoComesAndGoes)
{
    const QTemporaryDir folder;
    ToolRun run({"list", "--watch", "--json"});
    run.set("ZRNCAM_PLUGIN", QStringLiteral(DRIVER_PATH))
        .set("TMPDIR", folder.path())
        .under({ZRNSIM_PATH, "--camera", "type2,serial=7", "--"})
        .start();
    VirtualCamera camera = cameraOfRunIn(folder.path());
    run.waitForOutput("arrived");
    camera.unplug();
    run.waitForOutput("left");
    camera.restore();
    run.waitForOutput("arrived", 2);
    run.interrupt();
    const ToolResult result = run.finish();
    EXPECT_EQ(result.exitCode, 130);
    QStringList events;
    for (const QByteArray& line : result.output.trimmed().split('\n')) {
        const QJsonObject json = QJsonDocument::fromJson(line).object();
        events += json[QLatin1String("event")].toString() + QLatin1Char(' ') +
                  json[QLatin1String("serial")].toString();
    }
    events.removeAll(QStringLiteral("changed ZR7")); // access or use
    EXPECT_EQ(events, (QStringList{"arrived ZR7", "left ZR7", "arrived ZR7", " "}))
        << result.output.constData();
}

class VerifyVirtual : public testing::TestWithParam<const char*>
{
};

TEST_P(VerifyVirtual, KeepsTheContract)
{
    const ToolResult result = runVirtually(
        {QStringLiteral("--virtual=") + QString::fromLatin1(GetParam()), "verify", "--json"});
    const QJsonObject json = result.json();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_GT(json[QLatin1String("passed")].toInt(), 200);
    for (const QJsonValue check : json[QLatin1String("checks")].toArray()) {
        const QJsonObject row = check.toObject();
        EXPECT_NE(row[QLatin1String("status")].toString(), QStringLiteral("fail"))
            << row[QLatin1String("name")].toString().toStdString() << ": code "
            << row[QLatin1String("code")].toInt() << " "
            << row[QLatin1String("detail")].toString().toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Models, VerifyVirtual,
                         testing::Values("type0", "type1", "type2", "type5", "type6"));
