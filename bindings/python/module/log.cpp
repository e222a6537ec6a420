#include "log.h"

#include "module.h"
#include "waiting.h"

#include <QString>
#include <QtGlobal>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <pybind11/stl.h>
#include <string>
#include <utility>

namespace zrnpy
{
namespace
{

constexpr const char* driverCategory = "ZRNCamera";
/// Lines that are kept until somebody takes them; then the oldest go.
constexpr std::size_t mostLines = 1000;
/// How long they are collected. The driver writes for each frame, and who takes the lines takes the
/// interpreter from the thread that wants that frame.
constexpr std::chrono::milliseconds collectingTime(100);

/// A level of Python's logging, and a text.
using Line = std::pair<int, std::string>;

/// Lines on their way to Python. The driver's threads leave them here, because whoever has the
/// interpreter may be waiting for them.
class DriversLines
{
public:
    void add(Line line)
    {
        bool isFirst = false;
        {
            const std::lock_guard lock(m_mutex);
            isFirst = m_lines.empty();
            if (m_lines.size() >= mostLines) {
                m_lines.pop_front();
            }
            m_lines.push_back(std::move(line));
        }
        if (isFirst) {
            m_changed.notify_one();
        }
    }
    /// Those that have been collected, once there are some; none when there will be no more.
    std::deque<Line> take()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_lines.empty() || m_isEnded; });
        m_changed.wait_for(lock, collectingTime, [this] { return m_isEnded; });
        return std::exchange(m_lines, {});
    }
    void end()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnded = true;
        }
        m_changed.notify_one();
    }

private:
    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<Line> m_lines;
    bool m_isEnded = false;
};

/// Never destroyed: the driver writes until its library is gone.
DriversLines& driversLines()
{
    static auto* const lines = new DriversLines;
    return *lines;
}

QtMessageHandler otherHandler = nullptr;

int levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return 10;
    case QtInfoMsg:
        return 20;
    case QtWarningMsg:
        return 30;
    default:
        return 40;
    }
}

void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const bool isDrivers =
        context.category != nullptr && std::strcmp(context.category, driverCategory) == 0;
    if (isDrivers && type != QtFatalMsg) {
        driversLines().add({levelOf(type), text.toStdString()});
    } else {
        otherHandler(type, context, text);
    }
}

} // namespace

void takeDriversLines()
{
    static std::once_flag once;
    std::call_once(once, [] {
        driversLines();
        // What the handler reads must be there before it: until then it is asked for by its own.
        otherHandler = qInstallMessageHandler(nullptr);
        qInstallMessageHandler(handle);
    });
}

void addLog(py::module_& module)
{
    module.def("next_log_lines", [] { return unlocked([] { return driversLines().take(); }); });
    module.def("end_log", [] { driversLines().end(); });
}

} // namespace zrnpy
