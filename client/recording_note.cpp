#include "client/recording_note.h"

#include "client/camera.h"
#include "client/stream.h"
#include "client/variants.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace zrn
{
namespace
{

RecordingNote noteOf(FrameTimes::time_point time, const QJsonObject& object)
{
    return {time, QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString()};
}

QJsonObject objectOf(const StreamEvent& event)
{
    using Kind = StreamEvent::Kind;
    const auto named = [](const char* name) {
        return QJsonObject{{QStringLiteral("event"), QLatin1String(name)}};
    };
    QJsonObject object;
    switch (event.kind) {
    case Kind::Lost:
        object = named("lost");
        object[QLatin1String("cause")] = QLatin1String(nameOf(event.outage.cause));
        break;
    case Kind::Refused:
        object = named("refused");
        object[QLatin1String("reason")] = QString::fromStdString(event.reason);
        break;
    case Kind::Restarted:
    case Kind::Back:
        object = named(event.kind == Kind::Back ? "back" : "restarted");
        object[QLatin1String("seconds")] = event.outage.seconds;
        object[QLatin1String("missing")] = static_cast<qint64>(event.outage.missing);
        object[QLatin1String("repair")] = QLatin1String(nameOf(event.outage.repair));
        break;
    }
    return object;
}

} // namespace

RecordingNote noteOf(const SettingChange& setting)
{
    return noteOf(setting.time,
                  {{QStringLiteral("event"), QStringLiteral("setting")},
                   {QStringLiteral("key"), QString::fromStdString(setting.key)},
                   {QStringLiteral("value"), QJsonValue::fromVariant(toVariant(setting.value))}});
}

RecordingNote noteOf(const StreamEvent& event)
{
    return noteOf(FrameTimes::time_point::clock::now(), objectOf(event));
}

} // namespace zrn
