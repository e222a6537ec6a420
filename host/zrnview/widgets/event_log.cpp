#include "zrnview/widgets/event_log.h"

#include "zrnview/widgets/theme.h"

#include <QEvent>
#include <QTime>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace zrnview
{
namespace
{

constexpr std::size_t keptEvents = 500;
constexpr std::size_t keptDriverLines = 50; ///< those with numbers differ again and again
constexpr const char* driverCategory = "ZRNCamera";
constexpr QLatin1String grabTimedOut("try lock grab event failed");

std::mutex relayMutex; // guards what follows
EventLog* relayLog = nullptr;
bool printsDriverLog = true;
QtMessageHandler earlierHandler = nullptr;

/// Called in the thread that logs.
void relay(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const std::lock_guard lock(relayMutex);
    const bool isDrivers = context.category && std::strcmp(context.category, driverCategory) == 0;
    if (relayLog && type == QtCriticalMsg && isDrivers && message.trimmed() != grabTimedOut) {
        QMetaObject::invokeMethod(
            relayLog, [log = relayLog, text = message.simplified()] { log->addDriverLine(text); },
            Qt::QueuedConnection);
    }
    if (earlierHandler && (printsDriverLog || !isDrivers)) {
        earlierHandler(type, context, message);
    }
}

QString timeNow()
{
    return QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
}

} // namespace

EventLog::EventLog(QWidget* parent)
    : QListWidget(parent)
{
    setWordWrap(true);
    setAlternatingRowColors(true);
    setSelectionMode(ExtendedSelection);
    setAccessibleName(tr("Events"));
}

EventLog::~EventLog()
{
    const std::lock_guard lock(relayMutex);
    if (relayLog == this) {
        relayLog = nullptr;
    }
}

void EventLog::add(Tone tone, const QString& text)
{
    if (!m_events.empty() && m_events.back().text == text) {
        Entry& last = m_events.back();
        ++last.count;
        last.item->setText(tr("%1  %2  (%3 times)").arg(timeNow(), text).arg(last.count));
        return;
    }
    m_events.push_back(append(tone, text));
    if (m_events.size() > keptEvents) {
        delete m_events.front().item;
        m_events.pop_front();
    }
}

void EventLog::addDriverLine(const QString& text)
{
    const auto known = std::find_if(m_driverLines.begin(), m_driverLines.end(),
                                    [&text](const Entry& entry) { return entry.text == text; });
    if (known != m_driverLines.end()) {
        ++known->count;
        known->item->setText(tr("%1  Driver: %2  (%3 times, the last at %4)")
                                 .arg(known->since, text)
                                 .arg(known->count)
                                 .arg(timeNow()));
        return;
    }
    m_driverLines.push_back(append(Tone::Attention, tr("Driver: %1").arg(text)));
    m_driverLines.back().text = text;
    if (m_driverLines.size() > keptDriverLines) {
        delete m_driverLines.front().item;
        m_driverLines.pop_front();
    }
}

EventLog::Entry EventLog::append(Tone tone, const QString& text)
{
    const QString time = timeNow();
    auto* item = new QListWidgetItem(QStringLiteral("%1  %2").arg(time, text), this);
    item->setData(Qt::UserRole, static_cast<int>(tone));
    colour(*item);
    scrollToBottom();
    return {text, time, item};
}

void EventLog::colour(QListWidgetItem& entry) const
{
    const Colours colours = coloursFor(palette());
    const auto tone = static_cast<Tone>(entry.data(Qt::UserRole).toInt());
    if (tone != Tone::Information) {
        entry.setForeground(tone == Tone::Fault ? colours.fault : colours.attention);
    }
}

void EventLog::changeEvent(QEvent* event)
{
    QListWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        for (int row = 0; row < count(); ++row) {
            colour(*item(row));
        }
    }
}

void relayDriverMessages(EventLog& log, bool print)
{
    const std::lock_guard lock(relayMutex);
    relayLog = &log;
    printsDriverLog = print;
    const QtMessageHandler before = qInstallMessageHandler(relay);
    if (before != relay) {
        earlierHandler = before;
    }
}

} // namespace zrnview
