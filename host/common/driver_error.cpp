#include "common/driver_error.h"

#include "common/result_codes.h"

namespace zrnhost
{

DriverError::DriverError(const QString& operation, ErrorCode code)
    : std::runtime_error((operation + QStringLiteral(": ") + describeResult(code)).toStdString())
    , m_code(code)
{
}

QString DriverError::remedy() const
{
    const ResultCodeInfo* info = findResultCode(m_code);
    return info ? QString::fromLatin1(info->remedy) : QString();
}

void check(ErrorCode code, const QString& operation)
{
    if (code != ErrorCode::Success) {
        throw DriverError(operation, code);
    }
}

} // namespace zrnhost
