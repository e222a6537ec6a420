#pragma once

#include "zrnview/device/recorded_events.h"

#include <QSlider>

namespace zrnview
{

/// The position in a recording, with marks where something happened.
class TimeLine : public QSlider
{
    Q_OBJECT

public:
    explicit TimeLine(QWidget* parent = nullptr);

    void setEvents(const std::vector<RecordedEvent>& events);
    /// Where the mark of a frame is.
    int placeOf(int position) const;
    /// What happened at a place, a line for each event; empty where nothing did.
    QString textAt(int x) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QColor colourOf(RecordedEvent::Kind kind) const;

    std::vector<RecordedEvent> m_events;
};

/// "12.3 s  Gain = 20"
QString textOf(const RecordedEvent& event);

} // namespace zrnview
