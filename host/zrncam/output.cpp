#include "output.h"

#include "common/file_writer.h"
#include "tool_error.h"

#include <QJsonDocument>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

std::FILE* reserveStandardOutput(bool verbose)
{
    std::fflush(stdout);
    const int results = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int elsewhere = verbose ? STDERR_FILENO : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (results < 0 || elsewhere < 0 || ::dup2(elsewhere, STDOUT_FILENO) < 0) {
        return nullptr;
    }
    if (!verbose) {
        ::close(elsewhere);
    }
    return ::fdopen(results, "w");
}

void writeResult(std::FILE* standardOutput, const QString& path, const QByteArray& bytes)
{
    QString failure;
    if (!standardOutput) {
        failure = zrnhost::writeFile(path, bytes);
    } else if (const auto size = static_cast<std::size_t>(bytes.size());
               std::fwrite(bytes.constData(), 1, size, standardOutput) != size ||
               std::fflush(standardOutput) != 0) {
        failure =
            QStringLiteral("standard output: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
    }
    if (!failure.isEmpty()) {
        throw ToolError(ExitCode::Output, failure);
    }
}

QString countOf(qint64 number, const QString& noun)
{
    return QStringLiteral("%1 %2").arg(number).arg(number == 1 ? noun : noun + QLatin1Char('s'));
}

QString sizeText(double bytes)
{
    constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
    constexpr double step = 1000;
    std::size_t unit = 0;
    while (bytes >= step && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return QStringLiteral("%1 %2")
        .arg(bytes, 0, 'f', unit == 0 || bytes >= 100 ? 0 : 1)
        .arg(QLatin1String(units.at(unit)));
}

Report::Report(bool asJson, std::FILE* stream, QString name)
    : m_asJson(asJson)
    , m_stream(stream)
    , m_name(std::move(name))
{
}

void Report::line(const QString& text)
{
    if (!m_asJson) {
        write(text.toLocal8Bit() + '\n');
    }
}

void Report::line(const QString& name, const QString& value)
{
    line(name.leftJustified(16) + value);
}

void Report::event(const QString& text, const QJsonObject& json)
{
    m_hasEvents = true;
    line(text);
    if (m_asJson) {
        write(QJsonDocument(json).toJson(QJsonDocument::Compact) + '\n');
    }
    std::fflush(m_stream);
}

ExitCode Report::finish(ExitCode exitCode)
{
    if (m_asJson) {
        m_json[QLatin1String("exitCode")] = static_cast<int>(exitCode);
        if (m_list && m_list->isEmpty()) {
            m_list->append(m_json);
        }
        const QJsonDocument document = m_list ? QJsonDocument(*m_list) : QJsonDocument(m_json);
        write(m_hasEvents ? document.toJson(QJsonDocument::Compact) + '\n' : document.toJson());
    }
    // Buffered output meets a full disk or a closed pipe only here.
    if (std::fflush(m_stream) != 0 && m_error == 0) {
        m_error = errno;
    }
    if (m_error != 0) {
        std::fprintf(stderr, "zrncam: the result cannot be written: %s\n", std::strerror(m_error));
        return ExitCode::Output;
    }
    return exitCode;
}

void Report::write(const QByteArray& text)
{
    const auto size = static_cast<std::size_t>(text.size());
    if (std::fwrite(text.constData(), 1, size, m_stream) != size && m_error == 0) {
        m_error = errno;
    }
}

ExitCode Report::fail(ExitCode exitCode, const QString& message, const QString& hint,
                      QJsonObject error)
{
    const QString name = m_name.isEmpty() ? m_name : m_name + QStringLiteral(": ");
    std::fprintf(stderr, "zrncam: %s\n", (name + message).toLocal8Bit().constData());
    if (!hint.isEmpty()) {
        std::fprintf(stderr, "        %s\n", hint.toLocal8Bit().constData());
    }
    error[QLatin1String("message")] = message;
    error[QLatin1String("hint")] = hint;
    m_json[QLatin1String("error")] = error;
    return exitCode;
}
