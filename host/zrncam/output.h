#pragma once

#include "exit_codes.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <cstdio>
#include <optional>

/// Keeps standard output for results: whatever else writes to it, such as the driver, is sent to
/// standard error when @p verbose and dropped otherwise.
///
/// @return the stream for results, which the caller closes, or null.
std::FILE* reserveStandardOutput(bool verbose);

/// Writes a command's file. @param standardOutput it goes there; null: to the path
/// @throws ToolError
void writeResult(std::FILE* standardOutput, const QString& path, const QByteArray& bytes);

/// "1 frame", "2 frames".
QString countOf(qint64 number, const QString& noun);
/// "999 B", "1.5 GB".
QString sizeText(double bytes);

/// The result of a command: lines of text for a reader, or one JSON document for a program.
///
/// Thread safety: thread-bound.
class Report
{
public:
    /// @param stream stays the caller's. @param name put before what goes to standard error
    Report(bool asJson, std::FILE* stream, QString name = {});

    /// A line for the reader. Not part of the JSON.
    void line(const QString& text);
    /// A line of a name and its value, the values aligned.
    void line(const QString& name, const QString& value);
    /// Tells of something that has just happened: a line for the reader, or a document of its own
    /// in one line; the last document then has one line, too.
    void event(const QString& text, const QJsonObject& json);
    /// The document for a program. Not part of the text.
    QJsonObject& json() { return m_json; }
    /// Makes the document an array of these in place of the object; of the object when it is empty.
    void setList(const QJsonArray& list) { m_list = list; }

    /// Notes an error, which joins the document as its entry "error", and tells it on standard
    /// error. @return @p exitCode
    ExitCode fail(ExitCode exitCode, const QString& message, const QString& hint,
                  QJsonObject error = {});
    /// Ends the report. @return @p exitCode, or ExitCode::Output when the result could not be
    /// written, which is told on standard error.
    ExitCode finish(ExitCode exitCode);

private:
    void write(const QByteArray& text);

    bool m_asJson;
    bool m_hasEvents = false;
    std::FILE* m_stream;
    const QString m_name;
    QJsonObject m_json;
    std::optional<QJsonArray> m_list;
    int m_error = 0; ///< of the first write that failed
};
