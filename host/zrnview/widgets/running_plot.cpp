#include "zrnview/widgets/running_plot.h"

#include "zrnview/widgets/theme.h"

#include <QLocale>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

/// Drawing lines costs more than the eye gains from more pictures each second.
constexpr auto repaintPeriod = 100ms;

} // namespace

RunningPlot::RunningPlot(const QString& title, Style style, QWidget* parent)
    : QWidget(parent)
    , m_title(title)
    , m_style(style)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(title);
    m_repaint.setSingleShot(true);
    m_repaint.setInterval(repaintPeriod);
    connect(&m_repaint, &QTimer::timeout, this, [this] { update(); });
}

void RunningPlot::add(int line, double seconds, double value)
{
    m_lines[line].add(seconds, value);
    if (!m_repaint.isActive()) {
        m_repaint.start();
    }
}

void RunningPlot::clear()
{
    m_lines[0].clear();
    m_lines[1].clear();
    setHeadline(QString());
}

void RunningPlot::setHeadline(const QString& text, Tone tone)
{
    if (text != m_headline || tone != m_tone) {
        m_headline = text;
        m_tone = tone;
        setAccessibleDescription(text);
        update();
    }
}

void RunningPlot::setLegend(const QString& first, const QString& second)
{
    m_legend[0] = first;
    m_legend[1] = second;
    update();
}

QSize RunningPlot::sizeHint() const
{
    return {fontMetrics().averageCharWidth() * 24, fontMetrics().height() * 5};
}

QSize RunningPlot::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 13, fontMetrics().height() * 4};
}

RunningPlot::Scale RunningPlot::scaleOf() const
{
    const double highest = std::max(m_lines[0].maximum(), m_lines[1].maximum());
    if (m_style == Style::Range) {
        const double lowest = m_lines[0].minimum();
        return {lowest, std::max(highest, lowest + 1)};
    }
    return {0, highest > 0 ? niceCeiling(highest * 1.02) : 1};
}

void RunningPlot::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    const QFontMetrics metrics = fontMetrics();
    const int space = metrics.averageCharWidth() / 2;
    const QRect head(space, 0, width() - 2 * space, metrics.height());
    paintHead(painter, head);

    const QRectF area(0.5, metrics.height() + 2.5, width() - 1, height() - metrics.height() - 4);
    painter.setPen(colours.grid);
    painter.setBrush(colours.plotBackground);
    painter.drawRect(area);
    for (const double share : {0.25, 0.5, 0.75}) {
        const double y = area.top() + area.height() * share;
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
    }
    if (m_lines[0].isEmpty() && m_lines[1].isEmpty()) {
        paintLegend(painter, area);
        return;
    }

    const Scale scale = scaleOf();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipRect(area);
    paintLine(painter, area, scale, m_lines[1], colours.imageB);
    paintLine(painter, area, scale, m_lines[0], colours.imageA);
    painter.setPen(colours.dimText);
    painter.setFont(smallFont(font()));
    painter.drawText(area.adjusted(space, 1, -space, -1), Qt::AlignLeft | Qt::AlignTop,
                     locale().toString(scale.top, 'g', 10));
    paintLegend(painter, area);
}

void RunningPlot::paintLegend(QPainter& painter, const QRectF& area) const
{
    const Colours colours = coloursFor(palette());
    painter.setFont(smallFont(font()));
    const double line = QFontMetricsF(painter.font()).height();
    // Below the scale, and away from the newest values.
    QRectF box = area.adjusted(fontMetrics().averageCharWidth() / 2.0, 1 + line, 0, 0);
    for (const int index : {0, 1}) {
        box.setHeight(line);
        painter.setPen(index == 0 ? colours.imageA : colours.imageB);
        painter.drawText(box, Qt::AlignLeft | Qt::AlignVCenter, m_legend[index]);
        box.translate(0, line);
    }
}

void RunningPlot::paintHead(QPainter& painter, const QRect& head) const
{
    QFont bold = font();
    bold.setBold(true);
    const int free = head.width() - QFontMetrics(bold).horizontalAdvance(m_headline) -
                     fontMetrics().averageCharWidth();
    const bool fits = fontMetrics().horizontalAdvance(m_title) <= free;
    painter.setFont(fits ? font() : smallFont(font()));
    painter.setPen(coloursFor(palette()).dimText);
    painter.drawText(head, Qt::AlignLeft | Qt::AlignVCenter,
                     painter.fontMetrics().elidedText(m_title, Qt::ElideRight, free));
    painter.setFont(bold);
    painter.setPen(m_tone == Tone::Attention ? coloursFor(palette()).attention
                                             : palette().color(QPalette::WindowText));
    painter.drawText(head, Qt::AlignRight | Qt::AlignVCenter, m_headline);
    painter.setFont(font());
}

void RunningPlot::paintLine(QPainter& painter, const QRectF& area, const Scale& scale,
                            const Series& line, const QColor& colour) const
{
    if (line.isEmpty()) {
        return;
    }
    const double newest = line.newest().seconds;
    const auto place = [&](const SeriesPoint& point) {
        return QPointF(area.right() - (newest - point.seconds) / spanSeconds * area.width(),
                       area.bottom() - (point.value - scale.bottom) / (scale.top - scale.bottom) *
                                           area.height());
    };
    if (m_style == Style::Bars) {
        painter.setPen(QPen(coloursFor(palette()).attention, 2));
        for (const SeriesPoint& point : line.points()) {
            if (point.value > 0) {
                const QPointF top = place(point);
                painter.drawLine(QPointF(top.x(), area.bottom()), top);
            }
        }
        return;
    }
    QPainterPath path(place(line.points().front()));
    for (const SeriesPoint& point : line.points()) {
        path.lineTo(place(point));
    }
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(colour, 0)); // a hairline: wider ones are outlined first, which is slow
    painter.drawPath(path);
}

} // namespace zrnview
