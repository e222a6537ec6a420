// What is recorded is read again, byte for byte, and what damages a file costs no more than it
// must.

#include "client/crc32.h"
#include "client/error.h"
#include "client/recorder.h"
#include "client/recording.h"
#include "client/recording_notes.h"
#include "client/xxh3.h"
#include "file_size_limit.h"
#include "made_up_frames.h"

#include <QFile>
#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <limits>
#include <pthread.h>

using namespace zrn;
using namespace std::chrono_literals;

namespace
{

const std::string metadata = R"({"serial":"ZR1"})";

void expectSameImages(const Frame& read, const Frame& written)
{
    EXPECT_EQ(read.width, written.width);
    EXPECT_EQ(read.height, written.height);
    EXPECT_EQ(read.step.number, written.step.number);
    ASSERT_EQ(read.imageCount, written.imageCount);
    for (std::size_t i = 0; i < read.imageCount; ++i) {
        EXPECT_EQ(read.images()[i].letter, written.images()[i].letter);
        EXPECT_THAT(read.images()[i].bytes, testing::ElementsAreArray(written.images()[i].bytes));
    }
}

void expectSame(const Frame& read, const Frame& written)
{
    expectSameImages(read, written);
    EXPECT_EQ(read.step.missing, written.step.missing);
    EXPECT_EQ(read.dropped, written.dropped);
    EXPECT_EQ(read.arrival, written.arrival);
    EXPECT_EQ(read.wait, written.wait);
    EXPECT_EQ(read.exposure, written.exposure);
    EXPECT_EQ(read.gain, written.gain);
    EXPECT_EQ(read.times.source, written.times.source);
    EXPECT_EQ(read.times.firstPayload, written.times.firstPayload);
    EXPECT_EQ(read.times.lastPayload, written.times.lastPayload);
    EXPECT_EQ(read.times.handOver, written.times.handOver);
    EXPECT_EQ(read.times.captured, written.times.captured);
    EXPECT_EQ(read.times.sent, written.times.sent);
    EXPECT_EQ(read.times.cameraHz, written.times.cameraHz);
}

FrameTimes::time_point at(std::chrono::nanoseconds time)
{
    return FrameTimes::time_point(time);
}

/// As long as it lives no thread can be started: no memory is enough for a stack.
class ThreadShortage
{
public:
    ThreadShortage()
    {
        pthread_attr_t attributes;
        EXPECT_EQ(::pthread_getattr_default_np(&attributes), 0);
        EXPECT_EQ(::pthread_attr_getstacksize(&attributes, &m_usual), 0);
        setStackSize(std::numeric_limits<std::size_t>::max() / 2);
        ::pthread_attr_destroy(&attributes);
    }
    ~ThreadShortage() { setStackSize(m_usual); }
    ThreadShortage(const ThreadShortage&) = delete;
    ThreadShortage& operator=(const ThreadShortage&) = delete;

private:
    static void setStackSize(std::size_t size)
    {
        pthread_attr_t attributes;
        ::pthread_attr_init(&attributes);
        EXPECT_EQ(::pthread_attr_setstacksize(&attributes, size), 0);
        EXPECT_EQ(::pthread_setattr_default_np(&attributes), 0);
        ::pthread_attr_destroy(&attributes);
    }

    std::size_t m_usual = 0;
};

class RecordingTest : public testing::Test
{
protected:
    std::string pathOf(const char* name) const
    {
        return m_folder.filePath(QLatin1String(name)).toStdString();
    }

    /// A closed recording of @p count frames.
    std::string write(int count) const
    {
        const std::string path = pathOf("test.zrnrec");
        QFile::remove(QString::fromStdString(path));
        RecordingFile file(path, metadata);
        file.note({at(1ms), "{}"});
        for (int i = 0; i < count; ++i) {
            file.append(madeUpFrame(static_cast<std::uint32_t>(i)));
        }
        file.close();
        return path;
    }

    /// A recording of @p count frames whose writer was cut off, with a note before each.
    std::string writeWithNotes(int count, std::size_t noteBytes) const
    {
        const std::string path = pathOf("cut.zrnrec");
        RecordingFile file(path, metadata);
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(
                file.note({at(i * 1ms), std::string(noteBytes, static_cast<char>('a' + i))}));
            file.append(madeUpFrame(static_cast<std::uint32_t>(i)));
        }
        file.flush();
        return path;
    }

    /// Changes a byte of the header of a frame.
    void damageHeader(const std::string& path, std::uint64_t position) const
    {
        QFile file(QString::fromStdString(path));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.seek(static_cast<qint64>(firstFrame + position * frameDistance) + 20));
        ASSERT_TRUE(file.putChar('x'));
    }

    static constexpr std::uint64_t firstFrame = 2 * recording::blockSize;
    /// Of made-up frames.
    static constexpr std::uint64_t frameDistance = recording::frameHeaderBytes2 + 832;

    static QByteArray contentOf(const std::string& path)
    {
        QFile file(QString::fromStdString(path));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }

    std::string writeBytes(const QByteArray& bytes) const
    {
        const std::string path = pathOf("bytes.zrnrec");
        QFile file(QString::fromStdString(path));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    QTemporaryDir m_folder;
};

} // namespace

TEST_F(RecordingTest, GivesBackWhatWasRecorded)
{
    const Recording reader(write(5));
    EXPECT_TRUE(reader.isComplete());
    EXPECT_EQ(reader.lostBytes(), 0U);
    EXPECT_EQ(reader.metadata(), metadata);
    ASSERT_EQ(reader.frameCount(), 5);
    EXPECT_EQ(reader.duration(), 4ms);
    for (const int position : {3, 0, 4, 1, 2}) {
        expectSame(reader.frame(position), madeUpFrame(static_cast<std::uint32_t>(position)));
    }
}

TEST_F(RecordingTest, KeepsAllThatAFrameTells)
{
    Frame frame = madeUpFrame(5);
    frame.step.missing = 3;
    frame.dropped = 2;
    frame.wait = 7us;
    frame.exposure = 12345us;
    frame.gain = 17;
    frame.times = {FrameTimes::Source::Payload,
                   at(1h),
                   at(1h + 1ms),
                   at(1h + 2ms),
                   4000000000U,
                   12U,
                   48000000U};
    Frame untold = madeUpFrame(6);
    untold.times = {FrameTimes::Source::HandOver, at(2h), at(2h), at(2h), {}, 0U, 1U};
    const std::string path = pathOf("told.zrnrec");
    RecordingFile file(path, {});
    file.append(frame);
    file.append(untold);
    file.close();
    const Recording reader(path);
    expectSame(reader.frame(0), frame);
    expectSame(reader.view(1), untold);
    EXPECT_EQ(reader.sinceStart(0), 0ns);
    EXPECT_EQ(reader.sinceStart(1), 1ms);
}

TEST_F(RecordingTest, ReadsWhatVersion1Wrote)
{
    const Recording reader(VERSION1_RECORDING);
    EXPECT_EQ(reader.version(), 1);
    EXPECT_TRUE(reader.isComplete());
    EXPECT_EQ(reader.metadata(), metadata);
    EXPECT_EQ(reader.duration(), 3ms);
    ASSERT_EQ(reader.frameCount(), 4);
    for (int i = 0; i < 4; ++i) {
        const Frame frame = reader.frame(i);
        expectSameImages(frame, madeUpFrame(static_cast<std::uint32_t>(i)));
        EXPECT_EQ(frame.arrival, at(i * 1ms));
        EXPECT_EQ(frame.times.source, FrameTimes::Source::Grab);
        EXPECT_EQ(frame.times.firstPayload, frame.arrival);
        EXPECT_EQ(frame.times.lastPayload, frame.arrival);
        EXPECT_EQ(frame.times.handOver, frame.arrival);
        EXPECT_EQ(reader.sinceStart(i), i * 1ms);
        EXPECT_EQ(frame.step.missing, i == 2 ? 3U : 0U);
    }
    EXPECT_TRUE(reader.notes().empty());
    EXPECT_FALSE(reader.wallTime(at(1ms), WallClock::Kind::Realtime));
    ASSERT_TRUE(reader.stack());
    EXPECT_EQ(reader.stack()->frameBytes, recording::blockSize + 832);
}

TEST_F(RecordingTest, FindsTheFramesOfADamagedVersion1)
{
    QByteArray bytes = contentOf(VERSION1_RECORDING);
    bytes.chop(10);                                 // no tail
    bytes[2 * int{recording::blockSize} + 9] = 'x'; // the first header
    const int thirdImages = 2 * int{recording::blockSize} + 2 * (64 + 832) + 64;
    bytes[thirdImages] = static_cast<char>(~bytes[thirdImages]);
    const Recording reader(writeBytes(bytes));
    EXPECT_FALSE(reader.isComplete());
    ASSERT_EQ(reader.frameCount(), 4);
    EXPECT_THAT(reader.damage(), testing::ElementsAre(testing::Key(0), testing::Key(2)));
}

TEST_F(RecordingTest, TellsWhereTheImagesLie)
{
    const std::string path = write(4);
    const auto stack = Recording(path).stack();
    ASSERT_TRUE(stack);
    EXPECT_EQ(stack->width, 37U);
    EXPECT_EQ(stack->height, 11U);
    EXPECT_EQ(stack->frames, 4);
    EXPECT_EQ(stack->imagesPerFrame, 2U);
    const QByteArray bytes = contentOf(path);
    for (int i = 0; i < 4; ++i) {
        const Frame frame = madeUpFrame(static_cast<std::uint32_t>(i));
        for (std::size_t image = 0; image < 2; ++image) {
            const auto pixels = frame.images()[image].pixels();
            const auto place = stack->offset + image * stack->imageBytes +
                               static_cast<std::uint64_t>(i) * stack->frameBytes;
            EXPECT_EQ(bytes.mid(static_cast<int>(place), static_cast<int>(pixels.size())),
                      QByteArray(reinterpret_cast<const char*>(pixels.data()),
                                 static_cast<int>(pixels.size())));
        }
    }
    EXPECT_FALSE(Recording(write(0)).stack());
    const std::string mixed = pathOf("mixed.zrnrec");
    RecordingFile file(mixed, {});
    file.append(madeUpFrame(1, 8, 8));
    file.append(madeUpFrame(2, 9, 8)); // the same bytes with their padding
    file.close();
    EXPECT_FALSE(Recording(mixed).stack());
}

TEST_F(RecordingTest, KeepsNotes)
{
    const std::string path = pathOf("notes.zrnrec");
    RecordingFile file(path, {});
    EXPECT_TRUE(file.note({at(1s), R"({"event":"setting","key":"Gain","value":3})"}));
    file.append(madeUpFrame(0));
    EXPECT_TRUE(file.note({at(2s), std::string(recording::maximumNoteBytes, 'x')}));
    EXPECT_FALSE(file.note({at(3s), std::string(recording::maximumNoteBytes + 1, 'x')}));
    EXPECT_TRUE(file.note({at(4s), {}}));
    file.close();
    const Recording reader(path);
    const auto notes = reader.notes();
    ASSERT_EQ(notes.size(), 3U);
    EXPECT_EQ(notes[0].time, at(1s));
    EXPECT_EQ(notes[0].text, R"({"event":"setting","key":"Gain","value":3})");
    EXPECT_EQ(notes[1].text, std::string(recording::maximumNoteBytes, 'x'));
    EXPECT_EQ(notes[2].time, at(4s));
}

TEST_F(RecordingTest, NotesOfOneThatWasCutOffLieInItsFrames)
{
    for (const std::size_t length : {0U, 100U, 359U, 360U, 361U}) {
        const std::string path = writeWithNotes(8, length);
        const auto notes = Recording(path).notes();
        // A note that does not fit goes on in the next frames.
        const std::size_t carried = 8 * recording::noteChunkBytes / (16 + length);
        ASSERT_EQ(notes.size(), std::min<std::size_t>(8, carried)) << length;
        for (std::size_t i = 0; i < notes.size(); ++i) {
            EXPECT_EQ(notes[i].text, std::string(length, static_cast<char>('a' + i)));
            EXPECT_EQ(notes[i].time, at(i * 1ms));
        }
        QFile::remove(QString::fromStdString(path));
    }
}

TEST_F(RecordingTest, ADamagedHeaderCostsItsFrameAndTheNotesInIt)
{
    const std::string path =
        writeWithNotes(6, 400); // each begins in its frame and ends in the next
    damageHeader(path, 2);
    const Recording reader(path);
    EXPECT_EQ(reader.version(), 2);
    EXPECT_FALSE(reader.isComplete());
    ASSERT_EQ(reader.frameCount(), 6);
    EXPECT_THAT(reader.damage(), testing::ElementsAre(testing::Key(2)));
    for (const int i : {0, 1, 3, 4, 5}) {
        expectSame(reader.frame(i), madeUpFrame(static_cast<std::uint32_t>(i)));
    }
    std::string texts;
    for (const RecordingNote& note : reader.notes()) {
        EXPECT_EQ(note.text, std::string(400, note.text[0]));
        texts += note.text[0];
    }
    EXPECT_EQ(texts, "ade") << "what lies in the damaged header is lost";
}

TEST_F(RecordingTest, FindsFramesBehindAHeaderOfTheFileThatIsDamaged)
{
    QByteArray bytes = contentOf(write(3));
    bytes[9] = 'x';
    const Recording reader(writeBytes(bytes));
    ASSERT_EQ(reader.frameCount(), 3);
    EXPECT_TRUE(reader.metadata().empty());
    expectSame(reader.frame(2), madeUpFrame(2));
    bytes = contentOf(pathOf("test.zrnrec"));
    bytes[70] = 'x';
    EXPECT_TRUE(Recording(writeBytes(bytes)).metadata().empty()) << "damaged";
}

TEST_F(RecordingTest, NamesDamageBesideTheFrames)
{
    const std::string path = write(2);
    EXPECT_TRUE(Recording(path).otherDamage().empty());
    const QByteArray whole = contentOf(path);
    recording::Block end{};
    std::ranges::copy(whole.right(recording::blockSize), end.begin());
    const recording::Tail tail = recording::decodeTail(2, end).value();
    ASSERT_GT(tail.notesBytes, 0U);
    const std::map<std::uint64_t, const char*> parts = {
        {20, "the header of the file is damaged, and its metadata are lost"},
        {recording::blockSize + 3, "the metadata are damaged"},
        {tail.notesOffset + 5, "the notes behind the frames are damaged"},
        {tail.indexOffset + 3, "the index is damaged"},
    };
    for (const auto& [place, what] : parts) {
        QByteArray damaged = whole;
        const int at = static_cast<int>(place);
        damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
        const std::string other = writeBytes(damaged);
        const Recording reader(other);
        EXPECT_THAT(reader.otherDamage(), testing::ElementsAre(other + ": " + what));
        EXPECT_TRUE(reader.damage().empty());
        EXPECT_EQ(reader.frameCount(), 2);
        EXPECT_EQ(reader.notes().size(), 1U) << what;
    }
}

TEST_F(RecordingTest, AHoleOfTheFileHoldsNoFrames)
{
    const std::string path = pathOf("sparse.zrnrec");
    {
        RecordingFile file(path, metadata);
        file.append(madeUpFrame(0));
        file.flush();
    }
    // Frames that the hole would hold, by the header behind it. ThreadSanitizer maps no larger
    // files.
    constexpr qint64 farAway = qint64{1} << 35;
    const Frame last = madeUpFrame(1);
    recording::FrameHeader header;
    header.position = farAway / frameDistance;
    header.width = last.width;
    header.height = last.height;
    header.letters = {'A', 'B'};
    const recording::FrameBlock block = recording::encodeFrameHeader(header);
    QFile file(QString::fromStdString(path));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.seek(farAway));
    ASSERT_GT(file.write(reinterpret_cast<const char*>(block.data()), block.size()), 0);
    ASSERT_TRUE(file.resize(farAway + static_cast<qint64>(frameDistance)));
    file.close();
    EXPECT_EQ(Recording(path).frameCount(), 1);
}

TEST_F(RecordingTest, LooksForFramesInNoHoleOfTheFile)
{
    const std::string path = writeWithNotes(3, 10);
    damageHeader(path, 1);
    ASSERT_TRUE(QFile(QString::fromStdString(path)).resize(qint64{1} << 36));
    const Recording reader(path);
    ASSERT_EQ(reader.frameCount(), 3);
    EXPECT_THAT(reader.damage(), testing::ElementsAre(testing::Key(1)));
}

TEST_F(RecordingTest, DatesTimesByTheReadingsOfTheClocks)
{
    const std::string path = pathOf("dates.zrnrec");
    RecordingFile file(path, {});
    file.note(WallClock::Kind::Realtime, {at(10s), 1000s, 5us});
    file.note(WallClock::Kind::Tai, {at(10s), 1037s, 6us});
    file.append(madeUpFrame(0));
    file.note(WallClock::Kind::Realtime, {at(20s), 2010s, 5us}); // somebody has set it
    file.append(madeUpFrame(1));
    file.flush();
    const auto check = [&path] {
        const Recording reader(path);
        const auto realtime = [&reader](std::chrono::nanoseconds time) {
            return reader.wallTime(at(time), WallClock::Kind::Realtime).value();
        };
        EXPECT_EQ(realtime(9s).sinceEpoch, 999s);
        EXPECT_EQ(realtime(9s).error, 5us);
        EXPECT_EQ(realtime(11s).sinceEpoch, 1001s);
        EXPECT_EQ(realtime(11s).error, 1000s + 5us);
        EXPECT_EQ(realtime(21s).sinceEpoch, 2011s);
        EXPECT_EQ(reader.wallTime(at(20s), WallClock::Kind::Tai)->sinceEpoch, 1047s);
        EXPECT_FALSE(reader.wallTime(FrameTimes::time_point::max(), WallClock::Kind::Tai));
    };
    check();
    file.close();
    check();
    EXPECT_FALSE(Recording(write(1)).wallTime(at(1s), WallClock::Kind::Realtime)) << "none read";
}

TEST_F(RecordingTest, NothingThatAHeaderSaysOverflows)
{
    recording::FrameHeader header;
    header.width = 1;
    header.height = 1;
    header.letters = {'A', 0};
    header.arrivalNanoseconds = std::numeric_limits<std::int64_t>::min();
    const auto bytes = recording::encodeFrameHeader(header);
    const auto read = recording::decodeFrameHeader(2, bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->arrivalNanoseconds, -recording::maximumMonotonic);
    header.width = 0;
    EXPECT_FALSE(recording::decodeFrameHeader(2, recording::encodeFrameHeader(header)));
}

TEST_F(RecordingTest, AViewIsTheSameWithoutACopyAndKeepsTheFile)
{
    auto recording = std::make_unique<Recording>(write(3));
    for (int i = 0; i < 3; ++i) {
        expectSame(recording->view(i), madeUpFrame(static_cast<std::uint32_t>(i)));
    }
    EXPECT_EQ(recording->view(1).image('A')->bytes.data(),
              recording->view(1).image('A')->bytes.data());
    EXPECT_NE(recording->frame(1).image('A')->bytes.data(),
              recording->view(1).image('A')->bytes.data());
    const Frame view = recording->view(2);
    recording.reset();
    expectSame(view, madeUpFrame(2));
    EXPECT_THROW(static_cast<void>(Recording(write(3)).view(3)), Error);
}

TEST_F(RecordingTest, MayBeEmpty)
{
    const Recording reader(write(0));
    EXPECT_TRUE(reader.isComplete());
    EXPECT_EQ(reader.frameCount(), 0);
    EXPECT_EQ(reader.duration(), 0ms);
    EXPECT_THROW(static_cast<void>(reader.frame(0)), Error);
    EXPECT_THROW(static_cast<void>(reader.frame(-1)), Error);
}

TEST_F(RecordingTest, MixesSizesAndSingleImages)
{
    const std::string path = pathOf("mixed.zrnrec");
    RecordingFile file(path, {});
    const std::vector frames = {madeUpFrame(1, 64, 48, 1), madeUpFrame(2, 1, 1, 2),
                                madeUpFrame(3, 1280, 4, 2)};
    for (const auto& frame : frames) {
        file.append(frame);
    }
    file.close();
    const Recording reader(path);
    ASSERT_EQ(reader.frameCount(), 3);
    for (int i = 0; i < 3; ++i) {
        expectSame(reader.frame(i), frames[static_cast<std::size_t>(i)]);
    }
}

TEST_F(RecordingTest, NeverWritesOverAFile)
{
    const std::string path = write(1);
    EXPECT_THROW(RecordingFile(path, {}), Error);
    EXPECT_EQ(Recording(path).frameCount(), 1);
}

TEST_F(RecordingTest, CutAnywhereKeepsTheWholeFramesBeforeTheCut)
{
    const QByteArray whole = contentOf(write(4));
    const Recording original(pathOf("test.zrnrec"));
    int lastCount = 0;
    for (int length = 0; length < whole.size(); length += 7) {
        const std::string path = writeBytes(whole.left(length));
        try {
            const Recording reader(path);
            EXPECT_FALSE(reader.isComplete()) << length;
            EXPECT_GE(reader.frameCount(), lastCount) << length;
            lastCount = reader.frameCount();
            for (int i = 0; i < reader.frameCount(); ++i) {
                expectSame(reader.frame(i), madeUpFrame(static_cast<std::uint32_t>(i)));
            }
        } catch (const Error&) {
            EXPECT_LT(length, 2 * static_cast<int>(recording::blockSize))
                << "only a cut within the header loses everything";
        }
    }
    EXPECT_EQ(lastCount, 4);
}

TEST_F(RecordingTest, AnyDamagedByteIsNoticedOrHarmless)
{
    const QByteArray whole = contentOf(write(2));
    for (int at = 0; at < whole.size(); ++at) {
        QByteArray damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
        const std::string path = writeBytes(damaged);
        try {
            const Recording reader(path);
            for (int i = 0; i < reader.frameCount(); ++i) {
                try {
                    expectSame(reader.frame(i), madeUpFrame(static_cast<std::uint32_t>(i)));
                } catch (const Error&) {
                    // Noticed.
                }
            }
        } catch (const Error&) {
            EXPECT_LT(at, static_cast<int>(recording::blockSize))
                << "only damage to the file's header makes it unreadable";
        }
    }
}

TEST_F(RecordingTest, RefusesWhatIsNoRecording)
{
    EXPECT_THROW(Recording{writeBytes({})}, Error);
    EXPECT_THROW(Recording{writeBytes(QByteArray(1000, 'x'))}, Error);
    EXPECT_THROW(Recording{pathOf("missing.zrnrec")}, Error);
}

TEST_F(RecordingTest, KnowsWhatCanBeRecorded)
{
    EXPECT_TRUE(isRecordable(madeUpFrame(0)));
    Frame frame = madeUpFrame(0);
    frame.stored[1].bytes = frame.stored[1].bytes.first(frame.stored[1].bytes.size() - 1);
    EXPECT_FALSE(isRecordable(frame));
    frame.imageCount = 0;
    EXPECT_FALSE(isRecordable(frame));
    frame.imageCount = Frame::mostImages + 1;
    EXPECT_FALSE(isRecordable(frame));
}

TEST_F(RecordingTest, RecorderWritesEveryFrameThatItTook)
{
    const std::string path = pathOf("recorder.zrnrec");
    {
        Recorder recorder(path, {});
        for (std::uint32_t i = 0; i < 200; ++i) {
            ASSERT_TRUE(recorder.add(madeUpFrame(i)));
        }
        recorder.finish();
        const RecordingProgress progress = recorder.progress();
        EXPECT_TRUE(progress.finished);
        EXPECT_TRUE(progress.error.empty()) << progress.error;
        EXPECT_EQ(progress.frames, 200U);
        EXPECT_EQ(progress.unwritten, 0U);
        EXPECT_EQ(progress.queuedBytes, 0U);
        EXPECT_GT(progress.freeBytes, 0);
        EXPECT_FALSE(recorder.add(madeUpFrame(200))) << "ended";
    }
    const Recording reader(path);
    ASSERT_EQ(reader.frameCount(), 200);
    for (int i = 0; i < 200; ++i) {
        expectSame(reader.frame(i), madeUpFrame(static_cast<std::uint32_t>(i)));
    }
}

TEST_F(RecordingTest, RecorderKeepsNotesAndReadsTheClocks)
{
    const std::string path = pathOf("noted.zrnrec");
    {
        Recorder recorder(path, {});
        recorder.note({at(1s), "before"});
        recorder.add(madeUpFrame(0));
        recorder.note({at(2s), std::string(recording::maximumNoteBytes + 1, 'x')});
        recorder.note({at(3s), "after"});
        recorder.finish();
        recorder.note({at(4s), "too late"});
    }
    const Recording reader(path);
    ASSERT_EQ(reader.notes().size(), 2U);
    EXPECT_EQ(reader.notes()[0].text, "before");
    EXPECT_EQ(reader.notes()[1].text, "after");
    for (const auto kind : {WallClock::Kind::Realtime, WallClock::Kind::Tai}) {
        const WallClock::Reading now = WallClock::read(kind);
        const auto date = reader.wallTime(now.monotonic, kind);
        ASSERT_TRUE(date);
        EXPECT_LE(std::chrono::abs(date->sinceEpoch - now.other), 1h);
    }
}

TEST_F(RecordingTest, EndsWhenItsFileIsRemoved)
{
    const std::string path = pathOf("removed.zrnrec");
    Recorder recorder(path, {});
    ASSERT_TRUE(recorder.add(madeUpFrame(0)));
    QFile::remove(QString::fromStdString(path));
    std::uint32_t number = 1;
    while (number < 100 && recorder.add(madeUpFrame(number))) {
        ++number;
    }
    recorder.finish();
    EXPECT_EQ(recorder.progress().error, "the file was removed meanwhile");
}

TEST_F(RecordingTest, WritesMoreThanItsBuffersHold)
{
    const std::string path = pathOf("large.zrnrec");
    {
        Recorder recorder(path, {});
        for (std::uint32_t i = 0; i < 12; ++i) {
            ASSERT_TRUE(recorder.add(madeUpFrame(i, 1280, 1024)));
        }
    }
    const Recording reader(path);
    EXPECT_TRUE(reader.isComplete());
    ASSERT_EQ(reader.frameCount(), 12);
    EXPECT_TRUE(reader.damage().empty());
    EXPECT_EQ(reader.bytes() % recording::blockSize, 0U);
}

TEST_F(RecordingTest, AFullQueueMakesTheCameraWaitInsteadOfDropping)
{
    Recorder::Limits limits;
    limits.queueBytes = 1; // less than one frame
    const std::string path = pathOf("narrow.zrnrec");
    {
        Recorder recorder(path, {}, limits);
        for (std::uint32_t i = 0; i < 50; ++i) {
            ASSERT_TRUE(recorder.add(madeUpFrame(i)));
        }
    }
    EXPECT_EQ(Recording(path).frameCount(), 50);
}

TEST_F(RecordingTest, CountsTheFramesThatWereMissing)
{
    Recorder recorder(pathOf("gaps.zrnrec"), {});
    for (const std::uint32_t missing : {7U, 0U, 3U}) {
        Frame frame = madeUpFrame(missing);
        frame.step.missing = missing;
        ASSERT_TRUE(recorder.add(frame));
    }
    recorder.finish();
    EXPECT_EQ(recorder.progress().missing, 3U) << "what was missing before the start is no loss";
}

TEST_F(RecordingTest, RefusesFramesThatContradictThemselves)
{
    Recorder recorder(pathOf("bad.zrnrec"), {});
    Frame frame = madeUpFrame(0);
    frame.width += 1;
    EXPECT_FALSE(recorder.add(frame));
    EXPECT_TRUE(recorder.add(madeUpFrame(1)));
    recorder.finish();
    EXPECT_EQ(recorder.progress().frames, 1U);
}

TEST_F(RecordingTest, EndsBeforeTheDiskIsFullAndSaysSo)
{
    Recorder::Limits limits;
    limits.reservedBytes = std::numeric_limits<std::int64_t>::max() / 2;
    const std::string path = pathOf("full.zrnrec");
    Recorder recorder(path, {}, limits);
    recorder.add(madeUpFrame(0));
    recorder.finish();
    EXPECT_EQ(recorder.progress().error, "the disk is full");
    EXPECT_EQ(recorder.progress().unwritten, 1U);
    EXPECT_FALSE(QFile::exists(QString::fromStdString(path))) << "without a frame it is none";
}

TEST_F(RecordingTest, AFailingWriteEndsTheRecordingAndKeepsWhatWasWritten)
{
    const std::string path = pathOf("failing.zrnrec");
    {
        const FileSizeLimit limit(20000);
        Recorder recorder(path, {});
        std::uint32_t number = 0;
        while (recorder.add(madeUpFrame(number))) {
            ++number;
        }
        recorder.finish();
        const RecordingProgress progress = recorder.progress();
        EXPECT_FALSE(progress.error.empty());
        EXPECT_GT(progress.unwritten, 0U);
        EXPECT_EQ(progress.frames + progress.unwritten, number) << "every frame that it took";
    }
    const Recording reader(path);
    EXPECT_FALSE(reader.isComplete());
    EXPECT_GT(reader.frameCount(), 10);
    EXPECT_GT(reader.lostBytes(), 0U);
    for (int i = 0; i < reader.frameCount(); ++i) {
        expectSame(reader.frame(i), madeUpFrame(static_cast<std::uint32_t>(i)));
    }
}

TEST_F(RecordingTest, ARecorderWithoutAThreadLeavesNoFile)
{
    const std::string path = pathOf("threadless.zrnrec");
    const ThreadShortage shortage;
    try {
        const Recorder recorder(path, metadata);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), Error::Kind::Recording);
        EXPECT_THAT(error.what(), testing::HasSubstr(path));
    }
    EXPECT_FALSE(QFile::exists(QString::fromStdString(path)));
}

TEST_F(RecordingTest, WhatCannotBeginLeavesNoFile)
{
    const FileSizeLimit limit(10);
    const std::string path = pathOf("begun.zrnrec");
    try {
        const RecordingFile file(path, metadata);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(std::string(error.what()), path + ": File too large");
    }
    EXPECT_FALSE(QFile::exists(QString::fromStdString(path)));
}

TEST_F(RecordingTest, AFolderThatDoesNotExistIsNamed)
{
    try {
        const Recorder recorder("/nonexistent/x.zrnrec", {});
        FAIL();
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/x.zrnrec"), std::string::npos);
    }
}

TEST_F(RecordingTest, AFolderIsNoRecording)
{
    EXPECT_THROW(Recording{pathOf(".")}, Error);
}

TEST(NoteReaderTest, TakesNothingThatNoWriterMakes)
{
    using recording::NoteReader;
    for (const std::size_t place : {7U, 11U, 12U}) { // of time, length, kind
        recording::NoteWriter writer;
        writer.add({FrameTimes::time_point(), "text"});
        std::vector<std::uint8_t> bytes(writer.whole().begin(), writer.whole().end());
        bytes[place] = 0x7f;
        NoteReader reader;
        reader.read({bytes, 0}, true);
        EXPECT_TRUE(reader.notes().empty()) << place;
        reader.read({writer.whole(), 0}, true);
        EXPECT_EQ(reader.notes().size(), 1U) << "goes on behind it";
    }
}

TEST(Xxh3Test, IsTheOneOfTheFormat)
{
    EXPECT_EQ(xxh3({}), 0x2d06800538d394c2U);
}

TEST(Crc32Test, IsTheOneOfVersion1)
{
    const std::string digits = "123456789";
    const std::vector<std::uint8_t> bytes(digits.begin(), digits.end());
    constexpr std::uint32_t known = 0xcbf43926U;
    EXPECT_EQ(crc32(bytes), known);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        const auto whole = std::span(bytes);
        EXPECT_EQ(crc32(whole.subspan(cut), crc32(whole.first(cut))), known);
    }
}
