#include "commands/outages.h"

QString textOf(const zrn::StreamEvent& event)
{
    using Kind = zrn::StreamEvent::Kind;
    if (event.kind == Kind::Lost) {
        return QStringLiteral("no frames since %1 s: camera %2")
            .arg(event.outage.begin, 0, 'f', 2)
            .arg(QLatin1String(zrn::nameOf(event.outage.cause)));
    }
    return event.kind == Kind::Refused
               ? QString::fromStdString(event.reason)
               : QStringLiteral("outage %1").arg(QString::fromStdString(event.outage.text()));
}

QJsonObject jsonOf(const zrn::Outage& outage)
{
    return {{QStringLiteral("begin"), outage.begin},
            {QStringLiteral("seconds"), outage.seconds},
            {QStringLiteral("cause"), QLatin1String(zrn::nameOf(outage.cause))},
            {QStringLiteral("repair"), QLatin1String(zrn::nameOf(outage.repair))},
            {QStringLiteral("missing"), static_cast<qint64>(outage.missing)},
            {QStringLiteral("missingIsExact"), outage.isMissingExact},
            {QStringLiteral("renumbered"), outage.isRenumbered}};
}
