#include "verify/compliance.h"

#include "common/result_codes.h"

#include <algorithm>

bool Compliance::expectCode(const QString& name, ErrorCode code, ErrorCode expected)
{
    const bool holds = code == expected;
    add(name, holds ? CheckStatus::Passed : CheckStatus::Failed, code,
        holds ? QString() : QStringLiteral("expected %1").arg(zrnhost::describeResult(expected)));
    return holds;
}

bool Compliance::expectSupport(const QString& name, ErrorCode code, ErrorCode unsupported)
{
    if (code == unsupported) {
        notSupported(name, code, QString());
        return false;
    }
    return expectCode(name, code);
}

bool Compliance::expect(const QString& name, bool holds, const QString& detail)
{
    add(name, holds ? CheckStatus::Passed : CheckStatus::Failed, std::nullopt, detail);
    return holds;
}

void Compliance::notSupported(const QString& name, ErrorCode code, const QString& detail)
{
    add(name, CheckStatus::NotSupported, code, detail);
}

int Compliance::count(CheckStatus status) const
{
    return static_cast<int>(std::count_if(
        m_rows.begin(), m_rows.end(), [status](const auto& row) { return row.status == status; }));
}

void Compliance::add(const QString& name, CheckStatus status, std::optional<ErrorCode> code,
                     const QString& detail)
{
    m_rows.push_back({m_group, name, status, code, detail});
}

const char* statusName(CheckStatus status)
{
    switch (status) {
    case CheckStatus::Passed:
        return "pass";
    case CheckStatus::Failed:
        return "FAIL";
    case CheckStatus::NotSupported:
        break;
    }
    return "not supported";
}
