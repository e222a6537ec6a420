#include "common/image_writer.h"

#include <QImage>
#include <QImageWriter>
#include <QSaveFile>

namespace zrnhost
{

QString writePng(const QString& path, const CameraSpace::ImageBlock& block, const ImageTexts& texts)
{
    QImage image(reinterpret_cast<const uchar*>(block.data.constData()), block.width, block.height,
                 block.width, QImage::Format_Grayscale8);
    // Texts of the image, since the writer's own would not take keywords with a space.
    for (const auto& [keyword, text] : texts) {
        image.setText(keyword, text);
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    }
    QImageWriter writer(&file, QByteArrayLiteral("png"));
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
