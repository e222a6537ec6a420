#pragma once

#include <QScrollArea>
#include <QStackedWidget>
#include <QTabWidget>

namespace zrnview
{

class CameraDevice;
class ControlsPanel;
class EventLog;
class PropertyTable;
class StreamPanel;

/// Scrolls up and down only: never narrower than what it holds.
class ColumnScroll : public QScrollArea
{
    Q_OBJECT

public:
    explicit ColumnScroll(QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

/// Everything about one camera that is not an image, as tabs, and the events of all cameras.
class SidePanel : public QTabWidget
{
    Q_OBJECT

public:
    explicit SidePanel(QWidget* parent = nullptr);

    /// Changes the camera that the tabs belong to. @param device outlives its tabs; null for none
    void showDevice(CameraDevice* device);

    /// Null, as the two below, while no camera is chosen.
    ControlsPanel* controls() const;
    StreamPanel* stream() const;
    PropertyTable* properties() const;
    EventLog& events() { return *m_events; }

signals:
    /// The input into a field of the camera has ended.
    void inputFinished();

private:
    ColumnScroll* m_controlsArea;
    ColumnScroll* m_streamArea;
    QStackedWidget* m_propertyArea;
    EventLog* m_events;
};

} // namespace zrnview
