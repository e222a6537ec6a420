// What a session records of a stream: segments, sets around triggers, and what a disk costs.

#include "client/camera_recorder.h"
#include "client/error.h"
#include "client/recording.h"
#include "client/recording_notes.h"
#include "file_size_limit.h"
#include "made_up_frames.h"
#include "scripted_driver.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <future>
#include <numeric>

using namespace zrn;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace
{

class CameraRecorderTest : public testing::Test
{
protected:
    using Clock = RecordingSession::Clock;

    /// No machine is so busy that what is waited for takes longer.
    static constexpr auto patience = 30s;
    static constexpr std::uint64_t frameBytes = 2 * (37 * 11 + 8); // of made up frames

    CameraRecorderTest() { plan.folder = folder.path().toStdString(); }

    /// Frames of these numbers, a millisecond apart, the last one just now.
    static std::vector<Frame> framesUntilNow(std::uint32_t first, std::uint32_t count)
    {
        std::vector<Frame> frames;
        const Clock::time_point now = Clock::now();
        for (std::uint32_t i = 0; i < count; ++i) {
            frames.push_back(madeUpFrame(first + i));
            frames.back().arrival = now - std::chrono::milliseconds(count - 1 - i);
        }
        return frames;
    }

    static void add(CameraRecorder& recorder, const std::vector<Frame>& frames)
    {
        for (const Frame& frame : frames) {
            recorder.add(frame, {});
        }
    }

    /// Adds frames while the disk stands still. @return lets it go on
    static std::function<void()> addToStandingDisk(CameraRecorder& recorder, std::uint32_t count)
    {
        const auto gate = std::make_shared<std::promise<void>>();
        std::vector<Frame> frames = framesUntilNow(0, count);
        // Whoever lets go of the first frame has to wait: the thread that writes it.
        frames[0].memory = std::shared_ptr<const void>(
            frames[0].memory.get(), [memory = frames[0].memory, open = gate->get_future().share()](
                                        const void*) { open.wait(); });
        for (Frame& frame : frames) {
            recorder.add(std::move(frame), {});
            frame = {};
        }
        return [gate] { gate->set_value(); };
    }

    std::shared_ptr<RecordingSession> makeSession() const
    {
        return std::make_shared<RecordingSession>(plan);
    }
    static std::unique_ptr<CameraRecorder>
    makeRecorder(const std::shared_ptr<RecordingSession>& session, const char* serial = "ZR1")
    {
        return std::make_unique<CameraRecorder>(session, serial, [] { return "{}"; });
    }

    template <typename Condition>
    static bool waitFor(const Condition& condition)
    {
        const auto end = Clock::now() + patience;
        while (!condition() && Clock::now() < end) {
            std::this_thread::sleep_for(2ms);
        }
        return condition();
    }

    /// The numbers of the frames of a part, file after file. Each file is complete, and each image
    /// what was made up for the number.
    static std::vector<std::uint32_t> numbersIn(const RecordedPart& part, bool isMadeUp = true)
    {
        std::vector<std::uint32_t> numbers;
        for (const RecordedFile& file : part.files) {
            const Recording recording(file.path);
            EXPECT_TRUE(recording.isComplete()) << file.path;
            EXPECT_EQ(recording.frameCount(), static_cast<int>(file.frames));
            for (int i = 0; i < recording.frameCount(); ++i) {
                const Frame frame = recording.frame(i);
                numbers.push_back(frame.step.number);
                EXPECT_TRUE(!isMadeUp ||
                            std::ranges::equal(frame.images()[0].bytes,
                                               madeUpFrame(frame.step.number).images()[0].bytes));
            }
            EXPECT_EQ(recording.header(0).number, file.firstNumber);
            EXPECT_EQ(numbers.back(), file.lastNumber);
        }
        return numbers;
    }

    /// Counts of frames in the files of a part.
    static std::vector<std::uint64_t> countsOf(const RecordedPart& part)
    {
        std::vector<std::uint64_t> counts;
        for (const RecordedFile& file : part.files) {
            counts.push_back(file.frames);
        }
        return counts;
    }

    static std::vector<std::string> notesIn(const RecordedFile& file)
    {
        std::vector<std::string> texts;
        for (const RecordingNote& note : Recording(file.path).notes()) {
            texts.push_back(note.text);
        }
        return texts;
    }

    static std::vector<std::uint32_t> numbers(std::uint32_t first, std::uint32_t count)
    {
        std::vector<std::uint32_t> list(count);
        std::iota(list.begin(), list.end(), first);
        return list;
    }

    QJsonObject documentOf(const char* set) const
    {
        QFile file(folder.filePath(QLatin1String(set)));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << set;
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    const QTemporaryDir folder;
    RecordingPlan plan;
};

} // namespace

TEST_F(CameraRecorderTest, SegmentsOfASizeLoseNoFrameAndRepeatNone)
{
    plan.segmentBytes = 3 * frameBytes;
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 10));
    recorder->finish();
    ASSERT_EQ(recorder->parts().size(), 1U);
    const RecordedPart part = recorder->parts().front();
    EXPECT_THAT(countsOf(part), ElementsAre(3, 3, 3, 1));
    EXPECT_EQ(numbersIn(part), numbers(0, 10));
    EXPECT_EQ(part.frames, 10U);
    EXPECT_EQ(part.missing, 0U);
    EXPECT_TRUE(part.files[1].path.ends_with("/recording_0001_ZR1_002.zrnrec"));

    plan.segmentBytes = 3 * frameBytes - 1;
    const auto second = makeRecorder(makeSession());
    add(*second, framesUntilNow(0, 10));
    second->finish();
    EXPECT_THAT(countsOf(second->parts().front()), ElementsAre(2, 2, 2, 2, 2));
}

TEST_F(CameraRecorderTest, SegmentsOfATimeBeginWithTheFrameAtItsEnd)
{
    plan.segmentDuration = 4ms;
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 9));
    recorder->finish();
    EXPECT_THAT(countsOf(recorder->parts().front()), ElementsAre(4, 4, 1));
    EXPECT_EQ(numbersIn(recorder->parts().front()), numbers(0, 9));
}

TEST_F(CameraRecorderTest, WhatIsMissingBetweenSegmentsIsCounted)
{
    plan.segmentBytes = 2 * frameBytes;
    const auto recorder = makeRecorder(makeSession());
    std::vector<Frame> frames = framesUntilNow(0, 4);
    frames[0].step.missing = 50; // before it began
    frames[2].step.missing = 3;
    frames[3].step.missing = 4;
    const StreamLosses before{50, 0, 0, 0};
    recorder->add(frames[0], before);
    recorder->add(frames[1], before);
    recorder->add(frames[2], {51, 1, 1, 0});
    recorder->add(frames[3], {51, 1, 5, 0});
    recorder->finish();
    const RecordedPart part = recorder->parts().front();
    EXPECT_EQ(part.missing, 7U);
    EXPECT_EQ(part.lost.camera, 1U);
    EXPECT_EQ(part.lost.library, 1U);
    EXPECT_EQ(part.lost.ring, 5U);
    EXPECT_EQ(part.files[0].missing, 0U);
    EXPECT_EQ(part.files[1].missing, 4U);
}

TEST_F(CameraRecorderTest, EndsWithAsManyFramesAsAreWanted)
{
    plan.frames = 4;
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 9));
    EXPECT_TRUE(recorder->waitUntilDone(patience));
    EXPECT_EQ(numbersIn(recorder->parts().front()), numbers(0, 4));
}

TEST_F(CameraRecorderTest, EndsByTheClockWhenNoFramesCome)
{
    plan.duration = 10ms;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    EXPECT_TRUE(recorder->waitUntilDone(patience));
    ASSERT_EQ(recorder->parts().size(), 1U);
    EXPECT_TRUE(recorder->parts().front().files.empty());
    recorder->finish();
    EXPECT_TRUE(documentOf("recording_0001.json")[QLatin1String("complete")].toBool());
}

TEST_F(CameraRecorderTest, ATriggerKeepsWhatCameBefore)
{
    plan.waitsForTrigger = true;
    plan.before = 20ms;
    plan.frames = 3;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    const std::vector<Frame> before = framesUntilNow(0, 200);
    add(*recorder, before);
    const Clock::time_point earliest = Clock::now();
    session->trigger();
    const Clock::time_point latest = Clock::now();
    std::this_thread::sleep_for(5ms);
    add(*recorder, framesUntilNow(200, 4)); // all after the trigger
    EXPECT_TRUE(waitFor([&] { return !recorder->parts().empty(); }));
    const RecordedPart part = recorder->parts().front();
    const std::vector<std::uint32_t> recorded = numbersIn(part);
    ASSERT_FALSE(recorded.empty());
    EXPECT_EQ(recorded, numbers(recorded[0], 203 - recorded[0]));
    // The machine may have been away for longer than the time before the trigger.
    if (recorded[0] < 200) {
        EXPECT_GE(before[recorded[0]].arrival, earliest - 20ms);
    }
    if (recorded[0] > 0) {
        EXPECT_LT(before[recorded[0] - 1].arrival, latest - 20ms);
    }
    EXPECT_LE(part.secondsBefore, 0.02);
}

TEST_F(CameraRecorderTest, TheMemoryBeforeATriggerIsBounded)
{
    plan.waitsForTrigger = true;
    plan.before = 1h;
    plan.frames = 0;
    plan.memoryBytes = 10 * frameBytes;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    add(*recorder, framesUntilNow(0, 10));
    EXPECT_FALSE(recorder->progress().isShortened);
    add(*recorder, framesUntilNow(10, 15));
    EXPECT_TRUE(recorder->progress().isShortened);
    session->trigger();
    EXPECT_TRUE(waitFor([&] { return !recorder->parts().empty(); }));
    EXPECT_EQ(numbersIn(recorder->parts().front()), numbers(15, 10));
    EXPECT_EQ(recorder->parts().front().lost.queue, 0U);
}

TEST_F(CameraRecorderTest, OldFramesMakeRoomForThoseAfterATrigger)
{
    plan.waitsForTrigger = true;
    plan.before = 1h;
    plan.frames = 0;
    plan.memoryBytes = 10 * frameBytes;
    const auto lossAfterATrigger = [this] {
        const auto session = makeSession();
        const auto recorder = makeRecorder(session);
        add(*recorder, framesUntilNow(0, 20)); // the memory is full of the last ten
        session->trigger();
        for (std::uint32_t number = 20; number < 24; ++number) { // the thread looks later
            Frame frame = madeUpFrame(number);
            frame.arrival = Clock::now();
            recorder->add(std::move(frame), {});
        }
        recorder->finish();
        return recorder->progress().queueLosses;
    };
    // A thread that looks just then, and gets no further on a busy machine, makes no room.
    EXPECT_TRUE(lossAfterATrigger() == 0 || lossAfterATrigger() == 0 || lossAfterATrigger() == 0);
}

TEST_F(CameraRecorderTest, OldFramesMakeRoomBeforeATrigger)
{
    plan.waitsForTrigger = true;
    plan.before = 3ms;
    plan.memoryBytes = 10 * frameBytes;
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 100));
    EXPECT_FALSE(recorder->progress().isShortened);
}

TEST_F(CameraRecorderTest, EachTriggerMakesASetAndNoFrameIsInTwo)
{
    plan.waitsForTrigger = true;
    plan.before = 1h;
    plan.frames = 0;
    plan.mostSets = 2;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    add(*recorder, framesUntilNow(0, 5));
    session->trigger();
    EXPECT_TRUE(waitFor([&] { return recorder->parts().size() == 1; }));
    EXPECT_TRUE(recorder->progress().isWaiting);
    std::this_thread::sleep_for(5ms);
    add(*recorder, framesUntilNow(5, 4));
    session->trigger();
    EXPECT_TRUE(recorder->waitUntilDone(patience));
    session->trigger(); // one more than is wanted
    EXPECT_EQ(recorder->progress().sets, 2U);
    EXPECT_EQ(numbersIn(recorder->parts()[0]), numbers(0, 5));
    EXPECT_EQ(numbersIn(recorder->parts()[1]), numbers(5, 4));
    recorder->finish();
    EXPECT_EQ(documentOf("recording_0002.json")[QLatin1String("triggers")].toArray().size(), 1);
}

TEST_F(CameraRecorderTest, ATriggerMeanwhileMakesTheSetGoOn)
{
    plan.waitsForTrigger = true;
    plan.frames = 3;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    session->trigger();
    std::this_thread::sleep_for(3ms);
    add(*recorder, framesUntilNow(0, 2));
    EXPECT_TRUE(waitFor([&] { return recorder->progress().frames == 2; }));
    session->trigger();
    std::this_thread::sleep_for(5ms);
    add(*recorder, framesUntilNow(2, 4));
    EXPECT_TRUE(waitFor([&] { return !recorder->parts().empty(); }));
    EXPECT_EQ(numbersIn(recorder->parts().front()), numbers(0, 5));
    EXPECT_EQ(recorder->progress().sets, 1U);
}

TEST_F(CameraRecorderTest, ASlowDiskCostsFramesAndNobodyWaits)
{
    plan.memoryBytes = 4 * frameBytes;
    plan.file.queueBytes = frameBytes;
    const auto recorder = makeRecorder(makeSession());
    const auto letTheDiskGoOn = addToStandingDisk(*recorder, 100);
    letTheDiskGoOn();
    EXPECT_TRUE(waitFor([&] {
        const CameraRecorderProgress progress = recorder->progress();
        return progress.frames > 0 && progress.queuedBytes == 0;
    }));
    recorder->add(madeUpFrame(100), {});
    recorder->finish();
    const RecordedPart part = recorder->parts().front();
    EXPECT_GT(part.lost.queue, 50U);
    EXPECT_EQ(part.frames + part.lost.queue, 101U);
    EXPECT_EQ(part.missing, part.lost.queue);
    EXPECT_EQ(part.unwritten, 0U);
    EXPECT_EQ(numbersIn(part).back(), 100U);
    const Recording recording(part.files.front().path);
    std::uint64_t dropped = 0;
    for (int i = 0; i < recording.frameCount(); ++i) {
        dropped += recording.header(i).dropped;
    }
    EXPECT_EQ(dropped, part.lost.queue);
}

TEST_F(CameraRecorderTest, FramesDroppedAtTheEndAreCountedToo)
{
    plan.memoryBytes = 4 * frameBytes;
    plan.file.queueBytes = frameBytes;
    const auto recorder = makeRecorder(makeSession());
    const auto letTheDiskGoOn = addToStandingDisk(*recorder, 100);
    recorder->stop();
    letTheDiskGoOn();
    recorder->finish();
    const RecordedPart part = recorder->parts().front();
    EXPECT_EQ(part.frames + part.lost.queue, 100U);
    EXPECT_EQ(part.missing, part.lost.queue);
}

TEST_F(CameraRecorderTest, AFullDiskKeepsWhatIsWrittenAndCountsTheRest)
{
    const FileSizeLimit limit(10'000'000);
    plan.file.queueBytes = 1; // most frames wait for the recorder
    const auto recorder = makeRecorder(makeSession());
    Frame frame = madeUpFrame(0, 640, 480);
    for (std::uint32_t number = 0; number < 40; ++number) {
        frame.step.number = number;
        recorder->add(frame, {});
    }
    ASSERT_TRUE(recorder->waitUntilDone(patience));
    const RecordedPart part = recorder->parts().front();
    EXPECT_THAT(part.failure, testing::HasSubstr("recording_0001_ZR1.zrnrec: "));
    EXPECT_EQ(part.frames + part.unwritten, 40U);
    EXPECT_GT(part.unwritten, 20U);
    ASSERT_EQ(part.files.size(), 1U);
    const Recording recording(part.files[0].path);
    EXPECT_GE(recording.frameCount(), static_cast<int>(part.frames));
    for (int i = 0; i < recording.frameCount(); ++i) {
        EXPECT_EQ(recording.frame(i).step.number, static_cast<std::uint32_t>(i));
    }
}

TEST_F(CameraRecorderTest, AFileThatIsRemovedIsAFailure)
{
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 3));
    const QString path = folder.filePath(QStringLiteral("recording_0001_ZR1.zrnrec"));
    EXPECT_TRUE(waitFor([&] { return recorder->progress().frames == 3; }));
    EXPECT_TRUE(QFile::remove(path));
    ASSERT_TRUE(recorder->waitUntilDone(patience)) << "without another frame";
    const RecordedPart part = recorder->parts().front();
    EXPECT_EQ(part.failure, path.toStdString() + ": the file was removed meanwhile");
    EXPECT_EQ(part.unwritten, 3U);
    EXPECT_TRUE(part.files.empty());
}

TEST_F(CameraRecorderTest, NothingIsReplaced)
{
    const auto fill = [this](const char* name) {
        QFile file(folder.filePath(QLatin1String(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    };
    fill("recording_0007_ZR9_001.zrnrec");
    fill("recording_0009.json.AbCdEf");
    fill("other_0012.json");
    const auto recorder = makeRecorder(makeSession());
    add(*recorder, framesUntilNow(0, 1));
    recorder->finish();
    EXPECT_TRUE(recorder->parts().front().files.at(0).path.ends_with("/recording_0010_ZR1.zrnrec"));
}

TEST_F(CameraRecorderTest, AFolderThatCannotBeWrittenToIsRefused)
{
    plan.folder = "/proc/recordings";
    EXPECT_THROW(makeSession(), Error);
}

TEST_F(CameraRecorderTest, NotesLieBetweenTheFramesThatTheyCameBetween)
{
    plan.waitsForTrigger = true;
    plan.before = 1h;
    plan.frames = 0;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    add(*recorder, framesUntilNow(0, 1));
    StreamEvent event;
    event.kind = StreamEvent::Kind::Lost;
    event.outage.cause = Outage::Cause::Gone;
    recorder->note(event);
    session->trigger();
    EXPECT_TRUE(waitFor([&] { return !recorder->parts().empty(); }));
    EXPECT_THAT(notesIn(recorder->parts().front().files.at(0)),
                ElementsAre(R"({"cause":"gone","event":"lost"})",
                            R"({"event":"camera","what":"trigger"})"));
}

TEST_F(CameraRecorderTest, NotesBeforeTheFirstFrameTakeAsMuchMemoryAsInAFile)
{
    const auto recorder = makeRecorder(makeSession());
    const std::string text(recording::maximumNoteBytes, 'n');
    const auto now = Clock::now();
    recorder->note({now, text + 'n'});
    for (std::size_t bytes = 0; bytes < 2 * recording::maximumNotesBytes; bytes += text.size()) {
        recorder->note({now, text});
    }
    EXPECT_TRUE(
        waitFor([&] { return recorder->progress().queuedBytes == recording::maximumNotesBytes; }));
    recorder->finish();
    EXPECT_EQ(recorder->progress().queuedBytes, 0U);
}

TEST_F(CameraRecorderTest, ASetThatIsNotWhatWasWantedTellsWhy)
{
    const auto recorder = makeRecorder(makeSession());
    recorder->stop("the stream cannot start");
    recorder->stop("another reason");
    recorder->finish();
    EXPECT_EQ(recorder->parts().front().failure, "the stream cannot start");
    const QJsonObject document = documentOf("recording_0001.json");
    EXPECT_EQ(document[QLatin1String("cameras")][0][QLatin1String("failure")].toString(),
              QStringLiteral("the stream cannot start"));
}

TEST_F(CameraRecorderTest, EveryFileBeginsWithTheSettingsInForceAndHasTheirChanges)
{
    const auto camera =
        Camera::open(ScriptedFactory::driverFor({std::make_shared<ScriptedDevice>("ZR1")}));
    plan.segmentBytes = 2 * frameBytes;
    const auto recorder = makeRecorder(makeSession());
    recorder->watch(*camera);
    add(*recorder, framesUntilNow(0, 1));
    camera->setGain(17);
    add(*recorder, framesUntilNow(1, 3));
    recorder->finish();
    camera->setGain(18);
    const std::vector<RecordedFile> files = recorder->parts().front().files;
    ASSERT_EQ(files.size(), 2U);
    EXPECT_THAT(notesIn(files[0]),
                ElementsAre(R"({"event":"setting","key":"Exposure","value":1000})",
                            R"({"event":"setting","key":"Gain","value":16})",
                            R"({"event":"setting","key":"Gain","value":17})"));
    EXPECT_THAT(notesIn(files[1]),
                ElementsAre(R"({"event":"setting","key":"Exposure","value":1000})",
                            R"({"event":"setting","key":"Gain","value":17})"));
}

TEST_F(CameraRecorderTest, SettingsOfBeforeAreKnownAtATrigger)
{
    const auto camera =
        Camera::open(ScriptedFactory::driverFor({std::make_shared<ScriptedDevice>("ZR1")}));
    plan.waitsForTrigger = true;
    plan.before = 1ms;
    plan.frames = 1;
    plan.mostSets = 1;
    const auto session = makeSession();
    const auto recorder = makeRecorder(session);
    recorder->watch(*camera);
    camera->setGain(17);
    std::this_thread::sleep_for(5ms);
    add(*recorder, framesUntilNow(0, 1)); // what came before leaves the memory
    session->trigger();
    add(*recorder, framesUntilNow(1, 1));
    EXPECT_TRUE(waitFor([&] { return !recorder->parts().empty(); }));
    EXPECT_THAT(notesIn(recorder->parts().front().files.at(0)),
                ElementsAre(R"({"event":"setting","key":"Exposure","value":1000})",
                            R"({"event":"setting","key":"Gain","value":17})",
                            R"({"event":"camera","what":"trigger"})"));
}

TEST_F(CameraRecorderTest, ACameraThatIsGoneForGoodLeavesTheOtherAlone)
{
    ScriptedFactory::Devices devices;
    for (const char* serial : {"ZR1", "ZR2"}) {
        devices.push_back(std::make_shared<ScriptedDevice>(QLatin1String(serial)));
        devices.back()->frameMilliseconds = 2;
    }
    const std::shared_ptr<Driver> driver = ScriptedFactory::driverFor(devices);
    const auto session = makeSession();
    std::vector<std::unique_ptr<CameraRecorder>> recorders;
    std::array<std::uint32_t, 2> given{}; // each by the thread of its stream
    std::vector<std::unique_ptr<Stream>> streams;
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& device = devices[i];
        const std::shared_ptr<Camera> camera =
            Camera::open(driver, {.serial = device->serial.toStdString()});
        camera->setProperty(keys::maxGrabWaitTime, 20U);
        recorders.push_back(makeRecorder(session, device->serial.toStdString().c_str()));
        StreamOptions options;
        options.keepAlive = true;
        options.patience = 10ms;
        options.onFrame = [&recorder = *recorders.back(), &count = given[i]](const Frame& frame) {
            recorder.add(frame, {});
            ++count;
        };
        streams.push_back(std::make_unique<Stream>(camera, std::move(options)));
    }
    EXPECT_TRUE(waitFor([&] { return recorders[1]->progress().frames > 5; }));
    devices[1]->unplug();
    EXPECT_TRUE(waitFor([&] { return streams[1]->counters().outage.has_value(); }));
    const std::uint64_t then = recorders[0]->progress().frames;
    EXPECT_TRUE(waitFor([&] { return recorders[0]->progress().frames > then + 50; }));
    EXPECT_TRUE(streams[1]->counters().outage.has_value());
    EXPECT_EQ(streams[0]->counters().gaps, 0U);
    for (std::size_t i = 0; i < 2; ++i) {
        streams[i].reset(); // gives nothing more from here on
        recorders[i]->finish();
        const RecordedPart part = recorders[i]->parts().front();
        EXPECT_EQ(part.frames, given[i]);
        EXPECT_EQ(numbersIn(part, false), numbers(0, given[i]));
    }
    const QJsonObject document = documentOf("recording_0001.json");
    EXPECT_TRUE(document[QLatin1String("complete")].toBool());
    EXPECT_EQ(document[QLatin1String("cameras")].toArray().size(), 2);
}
