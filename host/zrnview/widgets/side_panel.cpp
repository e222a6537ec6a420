#include "zrnview/widgets/side_panel.h"

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/controls_panel.h"
#include "zrnview/widgets/event_log.h"
#include "zrnview/widgets/property_table.h"
#include "zrnview/widgets/stream_panel.h"

#include <QEvent>
#include <QScrollBar>

namespace zrnview
{

ColumnScroll::ColumnScroll(QWidget* parent)
    : QScrollArea(parent)
{
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

QSize ColumnScroll::minimumSizeHint() const
{
    QSize size = QScrollArea::minimumSizeHint();
    if (widget()) {
        size.setWidth(widget()->minimumSizeHint().width() +
                      verticalScrollBar()->sizeHint().width());
    }
    return size;
}

bool ColumnScroll::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == widget() && event->type() == QEvent::LayoutRequest) {
        updateGeometry();
    }
    return QScrollArea::eventFilter(watched, event);
}

SidePanel::SidePanel(QWidget* parent)
    : QTabWidget(parent)
    , m_controlsArea(new ColumnScroll(this))
    , m_streamArea(new ColumnScroll(this))
    , m_propertyArea(new QStackedWidget(this))
    , m_events(new EventLog(this))
{
    setUsesScrollButtons(false);
    setDocumentMode(true);
    addTab(m_controlsArea, tr("C&ontrols"));
    addTab(m_streamArea, tr("Strea&m"));
    addTab(m_propertyArea, tr("&Properties"));
    addTab(m_events, tr("&Events"));
}

void SidePanel::showDevice(CameraDevice* device)
{
    delete m_propertyArea->currentWidget();
    delete m_controlsArea->takeWidget();
    delete m_streamArea->takeWidget();
    if (device) {
        auto* controls = new ControlsPanel(*device);
        auto* stream = new StreamPanel(*device);
        connect(controls, &ControlsPanel::finished, this, &SidePanel::inputFinished);
        connect(stream, &StreamPanel::finished, this, &SidePanel::inputFinished);
        m_controlsArea->setWidget(controls);
        m_streamArea->setWidget(stream);
        m_propertyArea->addWidget(new PropertyTable(*device));
    }
    m_controlsArea->updateGeometry();
    m_streamArea->updateGeometry();
}

ControlsPanel* SidePanel::controls() const
{
    return qobject_cast<ControlsPanel*>(m_controlsArea->widget());
}

StreamPanel* SidePanel::stream() const
{
    return qobject_cast<StreamPanel*>(m_streamArea->widget());
}

PropertyTable* SidePanel::properties() const
{
    return qobject_cast<PropertyTable*>(m_propertyArea->currentWidget());
}

} // namespace zrnview
