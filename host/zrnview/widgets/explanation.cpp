#include "zrnview/widgets/explanation.h"

#include "client/result_codes.h"

namespace zrnview
{

QString remedyFor(ErrorCode code)
{
    const zrn::ResultCodeInfo* info = zrn::findResultCode(code);
    QString remedy = info ? QString::fromLatin1(info->remedy) : QString();
    if (!remedy.isEmpty()) {
        remedy[0] = remedy.at(0).toUpper();
        remedy += QLatin1Char('.');
    }
    return remedy;
}

QString explained(const QString& what, ErrorCode code)
{
    return QStringLiteral("%1: %2. %3")
        .arg(what, QString::fromStdString(zrn::describeResult(code)), remedyFor(code));
}

} // namespace zrnview
