#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <csignal>

/// What a finished run of zrncam left behind.
struct ToolResult {
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;

    /// Standard output as a JSON document; an empty object when it is none.
    QJsonObject json() const;
    /// The same as an array; an empty one when it is none.
    QJsonArray list() const;
    /// Name of the result code in the document's error; empty without one.
    QString errorName() const;
    /// Its message, likewise.
    QString errorMessage() const;
};

/// A run of zrncam with the fake driver.
class ToolRun
{
public:
    explicit ToolRun(const QStringList& arguments);

    ToolRun& set(const char* variable, const QString& value);
    ToolRun& start();
    /// Starts it, and waits until one of its grabs waits for a frame, the first or a later one.
    void startUntilGrab(int number);
    void interrupt() { send(SIGINT); }
    void send(int signal);
    /// Writes to its standard input.
    void write(const QByteArray& text);
    /// Waits until it has written a text to standard error.
    void waitForError(const char* text);
    /// The same for so many of it in standard output.
    void waitForOutput(const char* text, int times = 1);
    bool isRunning() { return !m_process.waitForFinished(0); }
    /// Has another program run it, whose command line begins with these words.
    ToolRun& under(const QStringList& words);
    /// Lets it write no larger files: a disk that is full, as far as it can tell.
    ToolRun& limitFiles(int kibibytes);
    ToolResult finish();

    static ToolResult of(const QStringList& arguments) { return ToolRun(arguments).finish(); }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
    QByteArray m_output; ///< as far as it was waited for
    QByteArray m_errors; ///< likewise
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};
