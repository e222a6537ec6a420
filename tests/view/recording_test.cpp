#include "recording/recorder.h"
#include "recording/recording_reader.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <random>
#include <sys/resource.h>

namespace zrnrecording
{
namespace
{

std::shared_ptr<Frame> makeFrame(quint32 number, int width = 37, int height = 11,
                                 std::size_t images = 2)
{
    auto frame = std::make_shared<Frame>();
    frame->width = width;
    frame->height = height;
    frame->number = number;
    frame->arrivalNanoseconds = 1'000'000'000 + qint64{number} * 1'000'000;
    std::mt19937 random(number);
    for (std::size_t i = 0; i < images; ++i) {
        QByteArray data(width * height + imageTrailerBytes, Qt::Uninitialized);
        for (char& byte : data) {
            byte = static_cast<char>(random());
        }
        frame->images.push_back({i == 0 ? 'A' : 'B', data});
    }
    return frame;
}

void expectSame(const Frame& read, const Frame& written, qint64 firstArrival)
{
    EXPECT_EQ(read.width, written.width);
    EXPECT_EQ(read.height, written.height);
    EXPECT_EQ(read.number, written.number);
    EXPECT_EQ(read.missing, written.missing);
    EXPECT_EQ(read.arrivalNanoseconds, written.arrivalNanoseconds - firstArrival);
    ASSERT_EQ(read.images.size(), written.images.size());
    for (std::size_t i = 0; i < read.images.size(); ++i) {
        EXPECT_EQ(read.images[i].letter, written.images[i].letter);
        EXPECT_EQ(read.images[i].data, written.images[i].data);
    }
}

class RecordingTest : public testing::Test
{
protected:
    QString pathOf(const char* name) const { return m_folder.filePath(QLatin1String(name)); }

    /// A closed recording of @p count frames.
    QString write(int count)
    {
        const QString path = pathOf("test.zrnrec");
        QFile::remove(path);
        RecordingFile file(path, {{QStringLiteral("serial"), QStringLiteral("ZR1")}});
        for (int i = 0; i < count; ++i) {
            file.append(*makeFrame(static_cast<quint32>(i)));
        }
        file.close();
        return path;
    }

    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }

    QString writeBytes(const QByteArray& bytes)
    {
        const QString path = pathOf("bytes.zrnrec");
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    QTemporaryDir m_folder;
};

TEST_F(RecordingTest, GivesBackWhatWasRecorded)
{
    const RecordingReader reader(write(5));
    EXPECT_TRUE(reader.isComplete());
    EXPECT_EQ(reader.lostBytes(), 0U);
    EXPECT_EQ(reader.metadata()[QLatin1String("serial")].toString(), QStringLiteral("ZR1"));
    ASSERT_EQ(reader.frameCount(), 5);
    EXPECT_EQ(reader.durationNanoseconds(), 4'000'000);
    for (const int position : {3, 0, 4, 1, 2}) {
        const auto written = makeFrame(static_cast<quint32>(position));
        expectSame(reader.frame(position), *written, makeFrame(0)->arrivalNanoseconds);
    }
}

TEST_F(RecordingTest, MayBeEmpty)
{
    const RecordingReader reader(write(0));
    EXPECT_TRUE(reader.isComplete());
    EXPECT_EQ(reader.frameCount(), 0);
    EXPECT_EQ(reader.durationNanoseconds(), 0);
    EXPECT_THROW(reader.frame(0), RecordingError);
    EXPECT_THROW(reader.frame(-1), RecordingError);
}

TEST_F(RecordingTest, MixesSizesAndSingleImages)
{
    const QString path = pathOf("mixed.zrnrec");
    RecordingFile file(path, {});
    const std::vector frames = {makeFrame(1, 64, 48, 1), makeFrame(2, 1, 1, 2),
                                makeFrame(3, 1280, 4, 2)};
    for (const auto& frame : frames) {
        file.append(*frame);
    }
    file.close();
    const RecordingReader reader(path);
    ASSERT_EQ(reader.frameCount(), 3);
    for (int i = 0; i < 3; ++i) {
        expectSame(reader.frame(i), *frames[static_cast<std::size_t>(i)],
                   frames[0]->arrivalNanoseconds);
    }
}

TEST_F(RecordingTest, NeverWritesOverAFile)
{
    const QString path = write(1);
    EXPECT_THROW(RecordingFile(path, {}), RecordingError);
    EXPECT_EQ(RecordingReader(path).frameCount(), 1);
}

TEST_F(RecordingTest, CutAnywhereKeepsTheWholeFramesBeforeTheCut)
{
    const QByteArray whole = contentOf(write(4));
    const RecordingReader original(pathOf("test.zrnrec"));
    int lastCount = 0;
    for (int length = 0; length < whole.size(); length += 7) {
        const QString path = writeBytes(whole.left(length));
        try {
            const RecordingReader reader(path);
            EXPECT_FALSE(reader.isComplete()) << length;
            EXPECT_GE(reader.frameCount(), lastCount) << length;
            lastCount = reader.frameCount();
            for (int i = 0; i < reader.frameCount(); ++i) {
                expectSame(reader.frame(i), *makeFrame(static_cast<quint32>(i)),
                           makeFrame(0)->arrivalNanoseconds);
            }
        } catch (const RecordingError&) {
            EXPECT_LT(length, 2 * blockSize) << "only a cut within the header loses everything";
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
        const QString path = writeBytes(damaged);
        try {
            const RecordingReader reader(path);
            for (int i = 0; i < reader.frameCount(); ++i) {
                try {
                    expectSame(reader.frame(i), *makeFrame(static_cast<quint32>(i)),
                               makeFrame(0)->arrivalNanoseconds);
                } catch (const RecordingError&) {
                    // Noticed.
                }
            }
        } catch (const RecordingError&) {
            EXPECT_LT(at, blockSize) << "only damage to the file's header makes it unreadable";
        }
    }
}

TEST_F(RecordingTest, RefusesWhatIsNoRecording)
{
    EXPECT_THROW(RecordingReader{writeBytes({})}, RecordingError);
    EXPECT_THROW(RecordingReader{writeBytes(QByteArray(1000, 'x'))}, RecordingError);
    EXPECT_THROW(RecordingReader{pathOf("missing.zrnrec")}, RecordingError);
}

TEST_F(RecordingTest, KnowsWhatCanBeRecorded)
{
    EXPECT_TRUE(isRecordable(*makeFrame(0)));
    Frame frame = *makeFrame(0);
    frame.images[1].data.chop(1);
    EXPECT_FALSE(isRecordable(frame));
    frame.images.clear();
    EXPECT_FALSE(isRecordable(frame));
    EXPECT_FALSE(isRecordable(*makeFrame(0, 4, 4, 3)));
}

TEST_F(RecordingTest, RecorderWritesEveryFrameThatItTook)
{
    const QString path = pathOf("recorder.zrnrec");
    {
        Recorder recorder(path, {});
        for (quint32 i = 0; i < 200; ++i) {
            ASSERT_TRUE(recorder.add(makeFrame(i)));
        }
        recorder.finish();
        const RecordingProgress progress = recorder.progress();
        EXPECT_TRUE(progress.finished);
        EXPECT_TRUE(progress.error.isEmpty()) << progress.error.toStdString();
        EXPECT_EQ(progress.frames, 200U);
        EXPECT_EQ(progress.queuedBytes, 0U);
        EXPECT_GT(progress.freeBytes, 0);
        EXPECT_FALSE(recorder.add(makeFrame(200))) << "ended";
    }
    const RecordingReader reader(path);
    ASSERT_EQ(reader.frameCount(), 200);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(reader.frame(i).images[1].data,
                  makeFrame(static_cast<quint32>(i))->images[1].data);
    }
}

TEST_F(RecordingTest, AFullQueueMakesTheCameraWaitInsteadOfDropping)
{
    Recorder::Limits limits;
    limits.queueBytes = 1; // less than one frame
    const QString path = pathOf("narrow.zrnrec");
    {
        Recorder recorder(path, {}, limits);
        for (quint32 i = 0; i < 50; ++i) {
            ASSERT_TRUE(recorder.add(makeFrame(i)));
        }
    }
    EXPECT_EQ(RecordingReader(path).frameCount(), 50);
}

TEST_F(RecordingTest, CountsTheFramesThatWereMissing)
{
    Recorder recorder(pathOf("gaps.zrnrec"), {});
    for (const quint32 missing : {7U, 0U, 3U}) {
        const auto frame = makeFrame(missing);
        frame->missing = missing;
        ASSERT_TRUE(recorder.add(frame));
    }
    recorder.finish();
    EXPECT_EQ(recorder.progress().missing, 3U) << "what was missing before the start is no loss";
}

TEST_F(RecordingTest, RefusesFramesThatContradictThemselves)
{
    Recorder recorder(pathOf("bad.zrnrec"), {});
    const auto frame = makeFrame(0);
    frame->width += 1;
    EXPECT_FALSE(recorder.add(frame));
    EXPECT_TRUE(recorder.add(makeFrame(1)));
    recorder.finish();
    EXPECT_EQ(recorder.progress().frames, 1U);
}

TEST_F(RecordingTest, EndsBeforeTheDiskIsFullAndSaysSo)
{
    Recorder::Limits limits;
    limits.reservedBytes = std::numeric_limits<qint64>::max() / 2;
    const QString path = pathOf("full.zrnrec");
    Recorder recorder(path, {}, limits);
    recorder.add(makeFrame(0));
    recorder.finish();
    EXPECT_EQ(recorder.progress().error, QStringLiteral("the disk is full"));
    EXPECT_TRUE(RecordingReader(path).isComplete());
}

TEST_F(RecordingTest, AFailingWriteEndsTheRecordingAndKeepsWhatWasWritten)
{
    // A limit on file sizes stands in for a disk that fails; its signal is to be an error instead.
    struct rlimit before {
    };
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small = {20000, before.rlim_max};
    const QString path = pathOf("failing.zrnrec");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    {
        Recorder recorder(path, {});
        quint32 number = 0;
        while (recorder.add(makeFrame(number))) {
            ++number;
        }
        recorder.finish();
        EXPECT_FALSE(recorder.progress().error.isEmpty());
    }
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    const RecordingReader reader(path);
    EXPECT_FALSE(reader.isComplete());
    EXPECT_GT(reader.frameCount(), 10);
    EXPECT_GT(reader.lostBytes(), 0U);
    for (int i = 0; i < reader.frameCount(); ++i) {
        expectSame(reader.frame(i), *makeFrame(static_cast<quint32>(i)),
                   makeFrame(0)->arrivalNanoseconds);
    }
}

TEST_F(RecordingTest, AFolderThatDoesNotExistIsNamed)
{
    try {
        Recorder recorder(QStringLiteral("/nonexistent/x.zrnrec"), {});
        FAIL();
    } catch (const RecordingError& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/x.zrnrec"), std::string::npos);
    }
}

} // namespace
} // namespace zrnrecording
