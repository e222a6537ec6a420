// What is recorded is read again, byte for byte, and what damages a file costs no more than it
// must.

#include "client/crc32.h"
#include "client/error.h"
#include "client/recorder.h"
#include "client/recording.h"
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

void expectSame(const Frame& read, const Frame& written, Frame first = madeUpFrame(0))
{
    EXPECT_EQ(read.width, written.width);
    EXPECT_EQ(read.height, written.height);
    EXPECT_EQ(read.step.number, written.step.number);
    EXPECT_EQ(read.step.missing, written.step.missing);
    EXPECT_EQ(read.arrival.time_since_epoch(), written.arrival - first.arrival);
    ASSERT_EQ(read.imageCount, written.imageCount);
    for (std::size_t i = 0; i < read.imageCount; ++i) {
        EXPECT_EQ(read.images()[i].letter, written.images()[i].letter);
        EXPECT_THAT(read.images()[i].bytes, testing::ElementsAreArray(written.images()[i].bytes));
    }
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
        for (int i = 0; i < count; ++i) {
            file.append(madeUpFrame(static_cast<std::uint32_t>(i)));
        }
        file.close();
        return path;
    }

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
    EXPECT_THROW(Recording(write(3)).view(3), Error);
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
        expectSame(reader.frame(i), frames[static_cast<std::size_t>(i)], frames[0]);
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

TEST(Crc32Test, IsTheOneOfTheFormat)
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
