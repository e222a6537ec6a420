#pragma once

#include "../error_code.h"

#include <QString>

#include <algorithm>
#include <optional>
#include <vector>

namespace ContractSpace
{

/// How one check ended.
enum class CheckStatus {
    Passed,
    Failed,
    NotSupported, ///< the camera does not have this, and says so
};

/// One check that was made.
struct CheckRow {
    QString group;
    QString name;
    CheckStatus status = CheckStatus::Passed;
    std::optional<ErrorCode> code;     ///< what the operation answered; none for a comparison
    std::optional<ErrorCode> expected; ///< what it should have answered, where it did not
    QString detail;
};

/// The account of a run of checks. Thread safety: thread-bound.
class Account
{
public:
    /// Name of the group that the following rows belong to.
    void setGroup(const QString& group) { m_group = group; }

    /// Adds a row: passed if @p code is @p expected. @return whether it is.
    bool expectCode(const QString& name, ErrorCode code, ErrorCode expected = ErrorCode::Success)
    {
        CheckRow row{m_group, name, CheckStatus::Passed, code, std::nullopt, QString()};
        if (code != expected) {
            row.status = CheckStatus::Failed;
            row.expected = expected;
        }
        m_rows.push_back(row);
        return code == expected;
    }

    /// Adds a row: passed on success, not supported if the answer is @p unsupported.
    bool expectSupport(const QString& name, ErrorCode code, ErrorCode unsupported)
    {
        if (code == unsupported) {
            notSupported(name, code, QString());
            return false;
        }
        return expectCode(name, code);
    }

    /// Adds a row for a comparison.
    bool expect(const QString& name, bool holds, const QString& detail = QString())
    {
        const CheckStatus status = holds ? CheckStatus::Passed : CheckStatus::Failed;
        m_rows.push_back({m_group, name, status, std::nullopt, std::nullopt, detail});
        return holds;
    }

    /// Adds a row for something that the camera does not have.
    void notSupported(const QString& name, ErrorCode code, const QString& detail)
    {
        m_rows.push_back({m_group, name, CheckStatus::NotSupported, code, std::nullopt, detail});
    }

    const std::vector<CheckRow>& rows() const { return m_rows; }

    int count(CheckStatus status) const
    {
        return static_cast<int>(
            std::count_if(m_rows.begin(), m_rows.end(),
                          [status](const CheckRow& row) { return row.status == status; }));
    }

private:
    QString m_group;
    std::vector<CheckRow> m_rows;
};

/// "pass", "FAIL", "not supported".
inline const char* statusName(CheckStatus status)
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

} // namespace ContractSpace
