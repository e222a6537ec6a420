#pragma once

#include <QListWidget>

#include <deque>

namespace zrnview
{

/// What happened, with the time, newest last. Keeps some hundred events, and beside them some lines
/// of the driver.
class EventLog : public QListWidget
{
    Q_OBJECT

public:
    enum class Tone { Information, Attention, Fault };

    explicit EventLog(QWidget* parent = nullptr);
    ~EventLog() override;

    /// An event that repeats the last one is counted instead of added.
    void add(Tone tone, const QString& text);
    /// A line that is there is counted where it is.
    void addDriverLine(const QString& text);

protected:
    void changeEvent(QEvent* event) override;

private:
    struct Entry {
        QString text;
        QString since; ///< time of day
        QListWidgetItem* item;
        int count = 1;
    };

    Entry append(Tone tone, const QString& text);
    void colour(QListWidgetItem& entry) const;

    std::deque<Entry> m_events;
    std::deque<Entry> m_driverLines;
};

/// Sends what the driver logs as critical to @p log until that is destroyed; except that a grab
/// found no frame, as each does that waits for a slow camera. One log at a time.
/// @param print whether what the driver logs goes to standard error, too
void relayDriverMessages(EventLog& log, bool print);

} // namespace zrnview
