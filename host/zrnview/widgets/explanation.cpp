#include "zrnview/widgets/explanation.h"

#include "common/result_codes.h"

namespace zrnview
{

QString remedyFor(ErrorCode code)
{
    const zrnhost::ResultCodeInfo* info = zrnhost::findResultCode(code);
    QString remedy = info ? QString::fromLatin1(info->remedy) : QString();
    if (!remedy.isEmpty()) {
        remedy[0] = remedy.at(0).toUpper();
        remedy += QLatin1Char('.');
    }
    return remedy;
}

QString explained(const QString& what, ErrorCode code)
{
    return QStringLiteral("%1: %2. %3").arg(what, zrnhost::describeResult(code), remedyFor(code));
}

} // namespace zrnview
