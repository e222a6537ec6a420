#include "common/image_writer.h"

#include <QImage>
#include <QImageWriter>
#include <QSaveFile>

namespace zrnhost
{

QString writePng(const QString& path, const zrn::Image& source, std::uint32_t width,
                 std::uint32_t height, const ImageTexts& texts)
{
    QImage image(source.bytes.data(), static_cast<int>(width), static_cast<int>(height),
                 static_cast<int>(width), QImage::Format_Grayscale8);
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

QString writeRaw(const QString& path, const zrn::Image& image)
{
    QSaveFile file(path);
    const auto bytes = static_cast<qint64>(image.bytes.size());
    const bool written =
        file.open(QIODevice::WriteOnly) &&
        file.write(reinterpret_cast<const char*>(image.bytes.data()), bytes) == bytes &&
        file.commit();
    return written ? QString() : QStringLiteral("%1: %2").arg(path, file.errorString());
}

} // namespace zrnhost
