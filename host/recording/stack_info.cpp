#include "recording/stack_info.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

namespace
{

/// As a literal of Python, which those of JSON are.
QString quoted(const QString& text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

} // namespace

QJsonArray stackInfo(const zrn::Recording& recording, const QString& path)
{
    QJsonArray images;
    const auto stack = recording.stack();
    if (!stack) {
        return images;
    }
    const quint64 pixels = quint64{stack->width} * stack->height;
    for (std::size_t i = 0; i < stack->imagesPerFrame; ++i) {
        const quint64 offset = stack->offset + i * stack->imageBytes;
        images.append(QJsonObject{
            {QStringLiteral("image"), QString(QLatin1Char(stack->letters.at(i)))},
            {QStringLiteral("width"), static_cast<qint64>(stack->width)},
            {QStringLiteral("height"), static_cast<qint64>(stack->height)},
            {QStringLiteral("count"), stack->frames},
            {QStringLiteral("offset"), static_cast<qint64>(offset)},
            {QStringLiteral("gap"), static_cast<qint64>(stack->frameBytes - pixels)},
            {QStringLiteral("fiji"),
             QStringLiteral("File > Import > Raw: 8-bit, width %1, height %2, offset %3, number of "
                            "images %4, gap %5")
                 .arg(stack->width)
                 .arg(stack->height)
                 .arg(offset)
                 .arg(stack->frames)
                 .arg(stack->frameBytes - pixels)},
            {QStringLiteral("numpy"),
             QStringLiteral("numpy.ndarray((%1, %2, %3), 'u1', numpy.memmap(%4, mode='r'), %5, "
                            "(%6, %3, 1))")
                 .arg(stack->frames)
                 .arg(stack->height)
                 .arg(stack->width)
                 .arg(quoted(path))
                 .arg(offset)
                 .arg(stack->frameBytes)},
        });
    }
    return images;
}
