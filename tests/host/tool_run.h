#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

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
    void interrupt();
    ToolResult finish();

    static ToolResult of(const QStringList& arguments) { return ToolRun(arguments).finish(); }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};
