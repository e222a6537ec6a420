#pragma once

#include <QtGlobal>

#include <iosfwd>
#include <string>
#include <vector>

/// One message of Qt's logging, as it was written.
struct LogLine {
    QtMsgType level;
    std::string category;
    std::string text;

    friend bool operator==(const LogLine&, const LogLine&) = default;
};
std::ostream& operator<<(std::ostream& stream, const LogLine& line);

/// Lines of the driver's category.
LogLine debugLine(const std::string& text);
LogLine infoLine(const std::string& text);
LogLine criticalLine(const std::string& text);

/// Collects every message of Qt's logging while it lives. One at a time.
///
/// Thread safety: messages may come from any thread.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<LogLine> lines() const;
    /// The lines of one level, in order.
    [[nodiscard]] std::vector<LogLine> lines(QtMsgType level) const;
    void clear();

private:
    QtMessageHandler m_previous;
};
