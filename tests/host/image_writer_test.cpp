#include "common/image_blocks.h"
#include "common/image_writer.h"

#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace zrnhost;

namespace
{

CameraSpace::ImageBlock makeBlock(int width, int height)
{
    CameraSpace::ImageBlock block;
    block.width = width;
    block.height = height;
    block.bitsPerPixel = 8;
    for (int i = 0; i < width * height; ++i) {
        block.data.append(static_cast<char>(i * 7));
    }
    block.data.append("\x01\x02\x03\x04\xff\xff\xff\xff", 8);
    return block;
}

} // namespace

TEST(ImageBlocksTest, WellFormedBlocksAgreeInSizeAndData)
{
    CameraSpace::ImageBlock block = makeBlock(5, 3);
    EXPECT_TRUE(isWellFormed(block));
    EXPECT_EQ(trailerOf(block), 0xffffffff04030201U);
    block.data.chop(1);
    EXPECT_FALSE(isWellFormed(block));
    EXPECT_FALSE(isWellFormed(CameraSpace::ImageBlock{}));
    block = makeBlock(5, 3);
    block.width = 65536;
    block.height = 65536;
    EXPECT_FALSE(isWellFormed(block));
}

TEST(ImageBlocksTest, LettersFollowPositionAndSensorCount)
{
    EXPECT_EQ(imageLetter(0, 2, 2), 'A');
    EXPECT_EQ(imageLetter(1, 2, 2), 'B');
    EXPECT_EQ(imageLetter(0, 1, 2), 'A');
    EXPECT_EQ(imageLetter(0, 1, 1), 'B');
    EXPECT_EQ(imageLetter(0, 2, 1), 'A');
}

TEST(ImageWriterTest, PngHoldsPixelsAndTexts)
{
    // Widths that are no multiple of four meet Qt's own row alignment.
    for (const int width : {1, 5, 64}) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("a.png"));
        const CameraSpace::ImageBlock block = makeBlock(width, 3);
        ASSERT_EQ(writePng(path, block,
                           {{QStringLiteral("Serial"), QStringLiteral("ZR1")},
                            {QStringLiteral("FrameNumber"), QStringLiteral("12")}}),
                  QString());
        QImageReader reader(path);
        EXPECT_EQ(reader.text(QStringLiteral("Serial")), QStringLiteral("ZR1"));
        EXPECT_EQ(reader.text(QStringLiteral("FrameNumber")), QStringLiteral("12"));
        const QImage image = reader.read().convertToFormat(QImage::Format_Grayscale8);
        ASSERT_EQ(image.size(), QSize(width, 3));
        for (int y = 0; y < 3; ++y) {
            EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(image.constScanLine(y)), width),
                      block.data.mid(y * width, width));
        }
    }
}

TEST(ImageWriterTest, RawHoldsPixelsAndTrailer)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.raw"));
    const CameraSpace::ImageBlock block = makeBlock(4, 2);
    ASSERT_EQ(writeRaw(path, block), QString());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), block.data);
}

TEST(ImageWriterTest, FailureNamesTheFile)
{
    const QString path = QStringLiteral("/nonexistent-folder/a.png");
    EXPECT_TRUE(writePng(path, makeBlock(2, 2), {}).startsWith(path));
    EXPECT_TRUE(writeRaw(path, makeBlock(2, 2)).startsWith(path));
}
