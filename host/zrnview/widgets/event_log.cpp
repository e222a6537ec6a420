#include "zrnview/widgets/event_log.h"

#include "zrnview/widgets/theme.h"

#include <QEvent>
#include <QTime>

#include <cstring>
#include <mutex>

namespace zrnview
{
namespace
{

constexpr int keptEntries = 500;
constexpr const char* driverCategory = "ZRNCamera";

std::mutex relayMutex; // guards the two below
EventLog* relayLog = nullptr;
QtMessageHandler earlierHandler = nullptr;

/// Called in the thread that logs.
void relay(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const std::lock_guard lock(relayMutex);
    if (relayLog && type == QtCriticalMsg && context.category &&
        std::strcmp(context.category, driverCategory) == 0) {
        QMetaObject::invokeMethod(
            relayLog,
            [log = relayLog, message] {
                log->add(EventLog::Tone::Attention,
                         EventLog::tr("Driver: %1").arg(message.simplified()));
            },
            Qt::QueuedConnection);
    }
    if (earlierHandler) {
        earlierHandler(type, context, message);
    }
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
    const QString time = QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
    if (text == m_lastText && count() > 0) {
        ++m_repeats;
        item(count() - 1)
            ->setText(QStringLiteral("%1  %2  (%3 times)").arg(time, text).arg(m_repeats));
        return;
    }
    m_lastText = text;
    m_repeats = 1;
    auto* entry = new QListWidgetItem(QStringLiteral("%1  %2").arg(time, text), this);
    entry->setData(Qt::UserRole, static_cast<int>(tone));
    colour(*entry);
    if (count() > keptEntries) {
        delete takeItem(0);
    }
    scrollToBottom();
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

void relayDriverMessages(EventLog& log)
{
    const std::lock_guard lock(relayMutex);
    relayLog = &log;
    const QtMessageHandler before = qInstallMessageHandler(relay);
    if (before != relay) {
        earlierHandler = before;
    }
}

} // namespace zrnview
