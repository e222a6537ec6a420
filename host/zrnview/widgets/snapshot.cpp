#include "zrnview/widgets/snapshot.h"

#include "common/image_writer.h"
#include "zrnview/model/picture.h"

#include <QDateTime>
#include <QJsonValue>
#include <QThreadPool>

namespace zrnview
{
namespace
{

zrnhost::ImageTexts textsOf(const QJsonObject& metadata)
{
    zrnhost::ImageTexts texts{
        {QStringLiteral("Software"), QStringLiteral("zrnview")},
        {QStringLiteral("Serial"), metadata[QLatin1String("serial")].toString()}};
    const QJsonObject values = metadata[QLatin1String("settings")].toObject();
    for (auto value = values.begin(); value != values.end(); ++value) {
        texts.emplace_back(value.key(), value.value().toVariant().toString());
    }
    return texts;
}

} // namespace

QString datedName(const QString& name)
{
    return QStringLiteral("%1_%2").arg(
        name, QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz")));
}

Snapshots::~Snapshots()
{
    QThreadPool::globalInstance()->waitForDone();
}

void Snapshots::take(std::shared_ptr<const Display> display, const QString& folder,
                     const QString& name, const QJsonObject& metadata)
{
    QThreadPool::globalInstance()->start([this, display, folder, name, metadata] {
        const Frame& frame = display->source.frame;
        QStringList paths;
        for (const Image& image : frame.images()) {
            zrnhost::ImageTexts texts = textsOf(metadata);
            texts.emplace_back(QStringLiteral("Image"), QString(QLatin1Char(image.letter)));
            texts.emplace_back(QStringLiteral("Frame number"), QString::number(frame.step.number));
            texts.emplace_back(
                QStringLiteral("Trailer"),
                QStringLiteral("0x%1").arg(image.trailer(), 16, 16, QLatin1Char('0')));
            texts.emplace_back(QStringLiteral("Creation Time"),
                               QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
            const QString path = QStringLiteral("%1/%2_%3_%4.png")
                                     .arg(folder, name)
                                     .arg(frame.step.number)
                                     .arg(QLatin1Char(image.letter));
            const QString problem =
                zrnhost::writePng(path, image, frame.width, frame.height, texts);
            if (!problem.isEmpty()) {
                emit failed(problem);
                return;
            }
            paths += path;
        }
        emit written(paths);
    });
}

} // namespace zrnview
