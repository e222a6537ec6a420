#include "log_capture.h"

#include <QMessageLogContext>
#include <QString>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <ostream>

namespace
{

constexpr auto driverCategory = "ZRNCamera";

std::mutex collectedMutex;
std::vector<LogLine> collected; // guarded by collectedMutex

void collect(QtMsgType level, const QMessageLogContext& context, const QString& text)
{
    const std::lock_guard lock(collectedMutex);
    collected.push_back({level, context.category ? context.category : "", text.toStdString()});
}

const char* levelName(QtMsgType level)
{
    switch (level) {
    case QtDebugMsg:
        return "debug";
    case QtInfoMsg:
        return "info";
    case QtWarningMsg:
        return "warning";
    case QtCriticalMsg:
        return "critical";
    default:
        return "fatal";
    }
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const LogLine& line)
{
    return stream << levelName(line.level) << " [" << line.category << "] \"" << line.text << '"';
}

LogLine debugLine(const std::string& text)
{
    return {QtDebugMsg, driverCategory, text};
}

LogLine infoLine(const std::string& text)
{
    return {QtInfoMsg, driverCategory, text};
}

LogLine criticalLine(const std::string& text)
{
    return {QtCriticalMsg, driverCategory, text};
}

LogCapture::LogCapture()
    : m_previous(qInstallMessageHandler(collect))
{
    clear();
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
}

std::vector<LogLine> LogCapture::lines() const
{
    const std::lock_guard lock(collectedMutex);
    return collected;
}

std::vector<LogLine> LogCapture::lines(QtMsgType level) const
{
    std::vector<LogLine> chosen;
    const std::vector<LogLine> all = lines();
    std::copy_if(all.begin(), all.end(), std::back_inserter(chosen),
                 [level](const LogLine& line) { return line.level == level; });
    return chosen;
}

void LogCapture::clear()
{
    const std::lock_guard lock(collectedMutex);
    collected.clear();
}
