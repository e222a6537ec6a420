#pragma once

#include <QListWidget>

namespace zrnview
{

/// What happened, with the time, newest last. Keeps some hundred entries.
class EventLog : public QListWidget
{
    Q_OBJECT

public:
    enum class Tone { Information, Attention, Fault };

    explicit EventLog(QWidget* parent = nullptr);
    ~EventLog() override;

    /// An entry that repeats the last one is counted instead of added.
    void add(Tone tone, const QString& text);

protected:
    void changeEvent(QEvent* event) override;

private:
    void colour(QListWidgetItem& entry) const;

    QString m_lastText;
    int m_repeats = 0;
};

/// Sends what the driver logs as critical to @p log as well as to standard error, until the log is
/// destroyed. One log at a time.
void relayDriverMessages(EventLog& log);

} // namespace zrnview
