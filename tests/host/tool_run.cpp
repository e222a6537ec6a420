#include "tool_run.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QThread>
#include <gtest/gtest.h>

#include <csignal>

namespace
{

constexpr int longestRunMs = 60000;

} // namespace

QJsonObject ToolResult::json() const
{
    return QJsonDocument::fromJson(output).object();
}

QJsonArray ToolResult::list() const
{
    return QJsonDocument::fromJson(output).array();
}

QString ToolResult::errorName() const
{
    return json()[QLatin1String("error")].toObject()[QLatin1String("name")].toString();
}

QString ToolResult::errorMessage() const
{
    return json()[QLatin1String("error")].toObject()[QLatin1String("message")].toString();
}

ToolRun::ToolRun(const QStringList& arguments)
{
    m_environment.insert(QStringLiteral("ZRNCAM_PLUGIN"),
                         QStringLiteral(TEST_PLUGIN_DIR "/libfake_driver.so"));
    m_process.setProgram(QStringLiteral(ZRNCAM_PATH));
    m_process.setArguments(arguments);
}

ToolRun& ToolRun::set(const char* variable, const QString& value)
{
    m_environment.insert(QString::fromLatin1(variable), value);
    return *this;
}

ToolRun& ToolRun::start()
{
    m_process.setProcessEnvironment(m_environment);
    m_process.start();
    EXPECT_TRUE(m_process.waitForStarted());
    return *this;
}

void ToolRun::startUntilGrab(int number)
{
    const QString grabs = m_folder.filePath(QStringLiteral("grabs"));
    set("ZRN_FAKE_GRABS", grabs).start();
    const QDeadlineTimer end(longestRunMs);
    while (QFileInfo(grabs).size() < number) {
        ASSERT_FALSE(end.hasExpired()) << "no grab " << number;
        QThread::msleep(1);
    }
}

void ToolRun::send(int signal)
{
    if (const qint64 process = m_process.processId(); process > 0) { // it has not ended
        ::kill(static_cast<pid_t>(process), signal);
    }
}

void ToolRun::write(const QByteArray& text)
{
    EXPECT_EQ(m_process.write(text), text.size());
    while (m_process.bytesToWrite() > 0) {
        ASSERT_TRUE(m_process.waitForBytesWritten(longestRunMs));
    }
}

void ToolRun::waitForError(const char* text)
{
    m_process.setReadChannel(QProcess::StandardError);
    while (!m_errors.contains(text)) {
        ASSERT_TRUE(m_process.waitForReadyRead(longestRunMs)) << m_errors.constData();
        m_errors += m_process.readAllStandardError();
    }
}

void ToolRun::waitForOutput(const char* text, int times)
{
    m_process.setReadChannel(QProcess::StandardOutput);
    while (m_output.count(text) < times) {
        ASSERT_TRUE(m_process.waitForReadyRead(longestRunMs)) << m_output.constData();
        m_output += m_process.readAllStandardOutput();
    }
}

ToolRun& ToolRun::under(const QStringList& words)
{
    m_process.setArguments(words.mid(1) + QStringList{m_process.program()} + m_process.arguments());
    m_process.setProgram(words.front());
    return *this;
}

ToolRun& ToolRun::limitFiles(int kibibytes)
{
    const QString limited = QStringLiteral("ulimit -f %1; exec \"$0\" \"$@\"");
    return under({"bash", "-c", limited.arg(kibibytes)});
}

ToolResult ToolRun::finish()
{
    if (m_process.state() == QProcess::NotRunning) {
        start();
    }
    EXPECT_TRUE(m_process.waitForFinished(longestRunMs));
    EXPECT_EQ(m_process.exitStatus(), QProcess::NormalExit);
    return {m_process.exitCode(), m_output + m_process.readAllStandardOutput(),
            m_errors + m_process.readAllStandardError()};
}
