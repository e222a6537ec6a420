#include "common/image_writer.h"

#include <QImage>
#include <QImageWriter>
#include <QSaveFile>

namespace zrnhost
{

QString writePng(const QString& path, const CameraSpace::ImageBlock& block, const ImageTexts& texts)
{
    // The image only borrows the block's bytes, and the writer only reads them.
    const QImage image(reinterpret_cast<const uchar*>(block.data.constData()), block.width,
                       block.height, block.width, QImage::Format_Grayscale8);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    }
    QImageWriter writer(&file, QByteArrayLiteral("png"));
    for (const auto& [keyword, text] : texts) {
        writer.setText(keyword, text);
    }
    if (!writer.write(image)) {
        return QStringLiteral("%1: %2").arg(path, writer.errorString());
    }
    return file.commit() ? QString() : QStringLiteral("%1: %2").arg(path, file.errorString());
}

QString writeRaw(const QString& path, const CameraSpace::ImageBlock& block)
{
    QSaveFile file(path);
    const bool written = file.open(QIODevice::WriteOnly) &&
                         file.write(block.data) == block.data.size() && file.commit();
    return written ? QString() : QStringLiteral("%1: %2").arg(path, file.errorString());
}

} // namespace zrnhost
