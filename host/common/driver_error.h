#pragma once

#include "error_code.h"

#include <QString>

#include <stdexcept>

namespace zrnhost
{

/// An operation of the driver answered with a code other than success.
class DriverError : public std::runtime_error
{
public:
    /// @param operation what was tried, as in "connecting to camera 0".
    DriverError(const QString& operation, ErrorCode code);

    ErrorCode code() const { return m_code; }
    /// What the user can do about it; may be empty.
    QString remedy() const;

private:
    ErrorCode m_code;
};

/// Throws DriverError unless @p code is success.
void check(ErrorCode code, const QString& operation);

} // namespace zrnhost
