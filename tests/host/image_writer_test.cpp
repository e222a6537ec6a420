#include "checks/images.h"
#include "common/file_writer.h"
#include "common/image_writer.h"
#include "file_size_limit.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

zrn::Image imageOf(const CameraSpace::ImageBlock& block)
{
    return {'A',
            {reinterpret_cast<const std::uint8_t*>(block.data.constData()),
             static_cast<std::size_t>(block.data.size())}};
}

} // namespace

TEST(ImageBlocksTest, WellFormedBlocksAgreeInSizeAndData)
{
    CameraSpace::ImageBlock block = makeBlock(5, 3);
    EXPECT_TRUE(ContractSpace::isWellFormed(block));
    EXPECT_EQ(ContractSpace::trailerOf(block), 0xffffffff04030201U);
    block.data.chop(1);
    EXPECT_FALSE(ContractSpace::isWellFormed(block));
    EXPECT_FALSE(ContractSpace::isWellFormed(CameraSpace::ImageBlock{}));
    block = makeBlock(5, 3);
    block.width = 65536;
    block.height = 65536;
    EXPECT_FALSE(ContractSpace::isWellFormed(block));
}

TEST(ImageWriterTest, PngHoldsPixelsAndTexts)
{
    // Widths that are no multiple of four meet Qt's own row alignment.
    for (const int width : {1, 5, 64}) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("a.png"));
        const CameraSpace::ImageBlock block = makeBlock(width, 3);
        ASSERT_EQ(writePng(path, imageOf(block), static_cast<std::uint32_t>(width), 3,
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
    ASSERT_EQ(writeRaw(path, imageOf(block)), QString());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), block.data);
}

TEST(ImageWriterTest, FailureNamesTheFile)
{
    const QString path = QStringLiteral("/nonexistent-folder/a.png");
    const CameraSpace::ImageBlock block = makeBlock(2, 2);
    EXPECT_TRUE(writePng(path, imageOf(block), 2, 2, {}).startsWith(path));
    EXPECT_TRUE(writeRaw(path, imageOf(block)).startsWith(path));
}

TEST(ImageWriterTest, AFullDiskIsNamed)
{
    const QTemporaryDir folder;
    const FileSizeLimit limit(100);
    const CameraSpace::ImageBlock block = makeBlock(500, 200);
    const QString path = folder.filePath(QStringLiteral("a"));
    EXPECT_EQ(writePng(path, imageOf(block), 500, 200, {}), path + ": File too large");
    EXPECT_EQ(writeRaw(path, imageOf(block)), path + ": File too large");
    EXPECT_FALSE(QFile::exists(path));
}

/// A pipe of the test's own, because what breaks this replaces the file.
TEST(FileWriterTest, WhatIsNoFileIsWrittenTo)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("pipe"));
    const QByteArray name = path.toLocal8Bit();
    ASSERT_EQ(::mkfifo(name.constData(), S_IRUSR | S_IWUSR), 0);
    const int reader = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    EXPECT_EQ(writeFile(path, "text"), "");
    QByteArray text(8, '\0');
    EXPECT_EQ(::read(reader, text.data(), static_cast<std::size_t>(text.size())), 4);
    EXPECT_EQ(text.left(4), "text");
    ::close(reader);
    EXPECT_FALSE(QFileInfo(path).isFile()) << "as it was";
}
