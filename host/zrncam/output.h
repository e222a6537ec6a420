#pragma once

#include "exit_codes.h"

#include <QJsonObject>
#include <QString>

#include <cstdio>

/// Keeps standard output for results: whatever else writes to it, such as the driver, is sent to
/// standard error when @p verbose and dropped otherwise.
///
/// @return the stream for results, which the caller closes, or null.
std::FILE* reserveStandardOutput(bool verbose);

/// The result of a command: lines of text for a reader, or one JSON document for a program.
///
/// Thread safety: thread-bound.
class Report
{
public:
    /// @param stream stays the caller's.
    Report(bool asJson, std::FILE* stream);

    /// A line for the reader. Not part of the JSON.
    void line(const QString& text);
    /// A line of a name and its value, the values aligned.
    void line(const QString& name, const QString& value);
    /// The document for a program. Not part of the text.
    QJsonObject& json() { return m_json; }

    /// Ends the report. @return @p exitCode, or ExitCode::Output when the result could not be
    /// written.
    ExitCode finish(ExitCode exitCode);
    /// Ends the report with an error. @p error joins the document as its entry "error".
    ExitCode fail(ExitCode exitCode, const QString& message, const QString& hint,
                  QJsonObject error = {});

private:
    bool m_asJson;
    std::FILE* m_stream;
    QJsonObject m_json;
};
