// The program that reads recordings, as somebody at a terminal runs it.

#include "client/recording_file.h"
#include "client/recording_format.h"
#include "made_up_frames.h"

#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace zrn;
using namespace zrn::recording;

namespace
{

constexpr int width = 16;
constexpr int height = 4;
constexpr int patience = 60000; // milliseconds

QByteArray imageOf(quint32 number, char letter)
{
    QByteArray data(width * height, letter);
    data[0] = static_cast<char>(number);
    return data + QByteArray(static_cast<int>(Image::trailerBytes), '\0');
}

struct Outcome {
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

Outcome zrnrec(const QStringList& arguments, const QString& outputFile = {})
{
    QProcess process;
    process.setStandardOutputFile(outputFile);
    process.start(QStringLiteral(ZRNREC_PATH), arguments);
    EXPECT_TRUE(process.waitForFinished(patience));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

/// Three frames, with two numbers missing before the last.
class ZrnrecTest : public testing::Test
{
protected:
    ZrnrecTest()
    {
        RecordingFile file(path.toStdString(), R"({"serial":"ZR1"})");
        for (const quint32 number : {7U, 8U, 11U}) {
            const QByteArray a = imageOf(number, 'A');
            const QByteArray b = imageOf(number, 'B');
            Frame frame =
                frameOf(width, height, {{'A', {a.begin(), a.end()}}, {'B', {b.begin(), b.end()}}});
            frame.step.number = number;
            frame.step.missing = number == 11 ? 2 : 0;
            frame.arrival += number * std::chrono::milliseconds(100);
            file.append(frame);
        }
        file.close();
    }

    /// Changes the last byte of the first image of the last frame.
    void damage() const
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        const qint64 image = file.readAll().lastIndexOf(imageOf(11, 'A'));
        ASSERT_GT(image, 0);
        file.seek(image + width * height - 1);
        file.putChar('x');
    }

    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.zrnrec"));
};

/// A recording of one frame without a byte of content, whose size only its header tells.
void writeHollowRecording(const QString& path, quint32 frameWidth, quint32 frameHeight,
                          quint32 metadataBytes = 0)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    FrameHeader header;
    header.width = frameWidth;
    header.height = frameHeight;
    header.letters = {'A', 'B'};
    const Block fileHeader = encodeFileHeader({writtenVersion, metadataBytes, 0});
    const FrameBlock frameHeader = encodeFrameHeader(header);
    file.write(reinterpret_cast<const char*>(fileHeader.data()), static_cast<qint64>(blockSize));
    file.seek(static_cast<qint64>(blockSize + padded(metadataBytes)));
    file.write(reinterpret_cast<const char*>(frameHeader.data()),
               static_cast<qint64>(frameHeader.size()));
    // No disk has to hold it.
    ASSERT_TRUE(file.resize(file.pos() + static_cast<qint64>(padded(header.payloadBytes()))));
}

TEST_F(ZrnrecTest, RefusesSizesThatNoImageHas)
{
    const QString hollow = folder.filePath(QStringLiteral("hollow.zrnrec"));
    const QString output = folder.filePath(QStringLiteral("images"));
    for (const quint32 edge : {65535U, 32768U}) {
        writeHollowRecording(hollow, edge, edge);
        const Outcome verified = zrnrec({QStringLiteral("verify"), hollow});
        EXPECT_EQ(verified.exitCode, EXIT_FAILURE);
        EXPECT_EQ(verified.output, "0 frames, 0 damaged, cut off at the end\n");
        const Outcome exported =
            zrnrec({QStringLiteral("export"), QStringLiteral("-o"), output, hollow});
        EXPECT_EQ(exported.exitCode, EXIT_FAILURE); // for metadata that its header does not fit
        EXPECT_EQ(exported.output, "0 frames exported\n");
    }
    writeHollowRecording(hollow, 16, 4, 0x90000000U);
    for (const char* command : {"info", "verify", "export"}) {
        EXPECT_EQ(zrnrec({QLatin1String(command), hollow}).exitCode, EXIT_FAILURE);
    }
}

TEST_F(ZrnrecTest, TellsWhatARecordingHolds)
{
    const Outcome run = zrnrec({QStringLiteral("info"), path});
    EXPECT_EQ(run.exitCode, 0) << run.errors.constData();
    const QJsonObject info = QJsonDocument::fromJson(run.output).object();
    EXPECT_EQ(info[QLatin1String("frames")].toInt(), 3);
    EXPECT_EQ(info[QLatin1String("missing")].toInt(), 2);
    EXPECT_DOUBLE_EQ(info[QLatin1String("seconds")].toDouble(), 0.4);
    EXPECT_TRUE(info[QLatin1String("complete")].toBool());
    EXPECT_EQ(info[QLatin1String("metadata")].toObject()[QLatin1String("serial")].toString(),
              QStringLiteral("ZR1"));
}

TEST_F(ZrnrecTest, TellsHowToOpenItAsAStack)
{
    const QJsonArray stacks = QJsonDocument::fromJson(zrnrec({QStringLiteral("info"), path}).output)
                                  .object()[QLatin1String("stacks")]
                                  .toArray();
    ASSERT_EQ(stacks.size(), 2);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    for (int i = 0; i < stacks.size(); ++i) {
        const QJsonObject stack = stacks[i].toObject();
        EXPECT_EQ(stack[QLatin1String("count")].toInt(), 3);
        int place = stack[QLatin1String("offset")].toInt();
        for (const quint32 number : {7U, 8U, 11U}) {
            EXPECT_EQ(bytes.mid(place, width * height),
                      imageOf(number, i == 0 ? 'A' : 'B').left(width * height));
            place += width * height + stack[QLatin1String("gap")].toInt();
        }
    }
    EXPECT_TRUE(stacks[1].toObject()[QLatin1String("fiji")].toString().contains(
        QStringLiteral("8-bit, width 16, height 4")));
    EXPECT_TRUE(stacks[1].toObject()[QLatin1String("numpy")].toString().startsWith(
        QStringLiteral("numpy.ndarray((3, 4, 16), 'u1', numpy.memmap(\"")));
}

TEST_F(ZrnrecTest, VerifiesAndNamesDamage)
{
    Outcome run = zrnrec({QStringLiteral("verify"), path});
    EXPECT_EQ(run.exitCode, 0) << run.errors.constData();
    EXPECT_EQ(run.output, "3 frames, 0 damaged\n");
    damage();
    run = zrnrec({QStringLiteral("verify"), path});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output, "3 frames, 1 damaged\n");
    EXPECT_FALSE(run.errors.isEmpty());
}

TEST_F(ZrnrecTest, DamagedMetadataAreNoWholeRecording)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.seek(66) && file.putChar('~'));
    file.close();
    const Outcome run = zrnrec({QStringLiteral("verify"), path});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.output, "3 frames, 0 damaged\n");
    EXPECT_EQ(run.errors, path.toUtf8() + ": the metadata are damaged\n");
}

TEST_F(ZrnrecTest, NoticesACutOffEnd)
{
    QFile file(path);
    ASSERT_TRUE(file.resize(file.size() - 200));
    const Outcome run = zrnrec({QStringLiteral("verify"), path});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.output.contains("cut off at the end")) << run.output.constData();
}

TEST_F(ZrnrecTest, ExportsImagesAndBytes)
{
    const QString output = folder.filePath(QStringLiteral("new/pictures"));
    const QStringList command{QStringLiteral("export"), path, QStringLiteral("-o"), output};
    EXPECT_EQ(zrnrec(command).output, "3 frames exported\n");
    const QImage image(output + QStringLiteral("/000002_11_B.png"));
    ASSERT_EQ(image.size(), QSize(width, height));
    EXPECT_EQ(image.constScanLine(0)[0], 11);
    EXPECT_EQ(image.constScanLine(3)[15], 'B');
    EXPECT_EQ(image.text(QStringLiteral("Serial")), QStringLiteral("ZR1"));
    EXPECT_EQ(image.text(QStringLiteral("Frame number")), QStringLiteral("11"));

    const QStringList one{QStringLiteral("--raw"), QStringLiteral("--first"), QStringLiteral("1"),
                          QStringLiteral("-n"), QStringLiteral("1")};
    EXPECT_EQ(zrnrec(command + one).output, "1 frames exported\n");
    QFile raw(output + QStringLiteral("/000001_8_A.raw"));
    ASSERT_TRUE(raw.open(QIODevice::ReadOnly));
    EXPECT_EQ(raw.readAll(), imageOf(8, 'A'));
    EXPECT_EQ(QDir(output).entryList({QStringLiteral("*.raw")}).size(), 2);
}

TEST_F(ZrnrecTest, SaysWhatItCannotRead)
{
    const Outcome run = zrnrec({QStringLiteral("info"), folder.filePath(QStringLiteral("none"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errors.startsWith("zrnrec: ")) << run.errors.constData();
    EXPECT_NE(zrnrec({}).exitCode, 0);
}

} // namespace

TEST_F(ZrnrecTest, AResultThatCannotBeWrittenIsAFailure)
{
    const Outcome outcome = zrnrec({"info", path}, QStringLiteral("/dev/full"));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.errors, "zrnrec: the result cannot be written: No space left on device\n");
}

TEST(ZrnrecVersionTest, IsTold)
{
    const Outcome outcome = zrnrec({"--version"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.output.startsWith("zrnrec ")) << outcome.output.constData();
}
