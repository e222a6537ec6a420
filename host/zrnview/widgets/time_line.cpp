#include "zrnview/widgets/time_line.h"

#include "zrnview/widgets/theme.h"

#include <QHelpEvent>
#include <QPainter>
#include <QStyleOptionSlider>
#include <QToolTip>

#include <cmath>

namespace zrnview
{
namespace
{

constexpr int markWidth = 2;
constexpr int markHeight = 6;
constexpr int reach = 4; ///< pixels around a mark that tell of it
constexpr int mostLines = 12;

} // namespace

QString textOf(const RecordedEvent& event)
{
    return TimeLine::tr("%1 s  %2").arg(event.seconds, 0, 'f', 1).arg(event.text);
}

TimeLine::TimeLine(QWidget* parent)
    : QSlider(Qt::Horizontal, parent)
{
}

void TimeLine::setEvents(const std::vector<RecordedEvent>& events)
{
    m_events = events;
    update();
}

int TimeLine::placeOf(int position) const
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect groove =
        style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, this);
    const QRect handle =
        style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    return groove.x() + handle.width() / 2 +
           QStyle::sliderPositionFromValue(minimum(), maximum(), position,
                                           groove.width() - handle.width());
}

QString TimeLine::textAt(int x) const
{
    QStringList lines;
    for (const RecordedEvent& event : m_events) {
        if (std::abs(placeOf(event.position) - x) > reach) {
            continue;
        }
        if (lines.size() == mostLines) {
            lines += QStringLiteral("…");
            break;
        }
        lines += textOf(event);
    }
    return lines.join(QLatin1Char('\n'));
}

QSize TimeLine::sizeHint() const
{
    return QSlider::sizeHint() + QSize(0, 2 * markHeight);
}

QSize TimeLine::minimumSizeHint() const
{
    return QSlider::minimumSizeHint() + QSize(0, 2 * markHeight);
}

bool TimeLine::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        QToolTip::showText(help->globalPos(), textAt(help->x()), this);
        return true;
    }
    return QSlider::event(event);
}

void TimeLine::paintEvent(QPaintEvent* event)
{
    QSlider::paintEvent(event);
    QPainter painter(this);
    for (const RecordedEvent& happened : m_events) {
        painter.fillRect(placeOf(happened.position) - markWidth / 2, height() - markHeight,
                         markWidth, markHeight, colourOf(happened.kind));
    }
}

QColor TimeLine::colourOf(RecordedEvent::Kind kind) const
{
    const Colours colours = coloursFor(palette());
    return kind == RecordedEvent::Kind::Setting  ? colours.imageA
           : kind == RecordedEvent::Kind::Outage ? colours.fault
                                                 : colours.attention;
}

} // namespace zrnview
