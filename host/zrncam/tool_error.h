#pragma once

#include "exit_codes.h"

#include <QString>

#include <stdexcept>

/// Ends the command with an exit code, a message and a hint at the remedy (which may be empty).
class ToolError : public std::runtime_error
{
public:
    ToolError(ExitCode exitCode, const QString& message, QString hint = QString())
        : std::runtime_error(message.toStdString())
        , m_exitCode(exitCode)
        , m_hint(std::move(hint))
    {
    }

    ExitCode exitCode() const { return m_exitCode; }
    const QString& hint() const { return m_hint; }

private:
    ExitCode m_exitCode;
    QString m_hint;
};
