#include "zrnview/widgets/measure_view.h"

#include "zrnview/model/histogram.h"
#include "zrnview/widgets/theme.h"

#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

#include <cmath>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto measurePeriod = 100ms; ///< numbers that change faster cannot be read

} // namespace

ProfilePlot::ProfilePlot(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(tr("Levels along the line"));
    setToolTip(tr("Levels along the line, from 0 to 255. Blue: image A, orange: image B."));
}

void ProfilePlot::show(Levels a, Levels b)
{
    m_a = std::move(a);
    m_b = std::move(b);
    update();
}

QSize ProfilePlot::sizeHint() const
{
    return {fontMetrics().averageCharWidth() * 24, fontMetrics().height() * 5};
}

void ProfilePlot::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    const QRectF area(0.5, 0.5, width() - 1, height() - 1);
    painter.setPen(colours.grid);
    painter.setBrush(colours.plotBackground);
    painter.drawRect(area);
    for (const double share : {0.25, 0.5, 0.75}) {
        const double y = area.top() + area.height() * share;
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
    }
    painter.setBrush(Qt::NoBrush);
    paintLine(painter, area, m_b, colours.imageB);
    paintLine(painter, area, m_a, colours.imageA);
}

void ProfilePlot::paintLine(QPainter& painter, const QRectF& area, const Levels& levels,
                            const QColor& colour) const
{
    if (levels.empty()) {
        return;
    }
    const double steps = std::max<double>(static_cast<double>(levels.size()) - 1, 1);
    QPainterPath path;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const QPointF at(area.left() + static_cast<double>(i) / steps * area.width(),
                         area.bottom() - levels[i] / 255.0 * area.height());
        i == 0 ? path.moveTo(at) : path.lineTo(at);
    }
    painter.setPen(QPen(colour, 0));
    painter.drawPath(path);
}

MeasureView::MeasureView(QWidget* parent)
    : QWidget(parent)
    , m_plot(new ProfilePlot(this))
    , m_text(new QLabel(this))
{
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setWordWrap(true);
    m_text->setAccessibleName(tr("Measurement"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 2, 0, 2);
    layout->addWidget(m_plot);
    layout->addWidget(m_text);
    m_timer.setSingleShot(true);
    m_timer.setInterval(measurePeriod);
    connect(&m_timer, &QTimer::timeout, this, &MeasureView::measure);
    hide();
}

void MeasureView::setTool(Tool tool)
{
    m_tool = tool;
    m_plot->setVisible(tool == Tool::Line);
    setVisible(tool != Tool::Pan);
    measureSoon();
}

void MeasureView::setSelection(const Selection& selection)
{
    if (selection != m_selection) {
        m_selection = selection;
        m_bestFocus[0] = m_bestFocus[1] = 0;
        measureSoon();
    }
}

void MeasureView::setPattern(BayerPattern pattern)
{
    m_pattern = pattern;
    measureSoon();
}

void MeasureView::show(std::shared_ptr<const Display> display)
{
    m_display = std::move(display);
    measureSoon();
}

void MeasureView::measureSoon()
{
    if (m_tool != Tool::Pan && m_display && !m_timer.isActive()) {
        m_timer.start();
    }
}

void MeasureView::measure()
{
    if (m_tool == Tool::Pan) {
        return;
    }
    const auto profile = [this](const QImage& image) {
        return image.isNull() ? ProfilePlot::Levels()
                              : profileOf(image, within(m_selection, image.size()));
    };
    QStringList lines;
    if (m_tool == Tool::Line) {
        m_plot->show(profile(m_display->a), profile(m_display->b));
        const QPoint distance = m_selection.to - m_selection.from;
        lines += tr("Line from %1, %2 to %3, %4: %5 pixels")
                     .arg(m_selection.from.x())
                     .arg(m_selection.from.y())
                     .arg(m_selection.to.x())
                     .arg(m_selection.to.y())
                     .arg(std::hypot(distance.x(), distance.y()), 0, 'f', 1);
    } else {
        const QRect region = m_selection.rectangle();
        lines += tr("%1 × %2 at %3, %4")
                     .arg(region.width())
                     .arg(region.height())
                     .arg(region.left())
                     .arg(region.top());
        for (const auto& [letter, image] :
             {std::pair('A', m_display->a), std::pair('B', m_display->b)}) {
            if (!image.isNull()) {
                lines += describe(letter, image);
            }
        }
    }
    m_text->setText(lines.join(QLatin1Char('\n')));
}

QString MeasureView::describe(char letter, const QImage& image)
{
    const QRect region = within(m_selection, image.size()).rectangle();
    const Histogram histogram = histogramOf(image, region);
    const double focus = focusMeasure(image, region);
    double& best = m_bestFocus[letter == 'A' ? 0 : 1];
    best = std::max(best, focus);
    QString text = tr("%1: mean %2, deviation %3, %4 to %5, focus %6 (best %7)")
                       .arg(QLatin1Char(letter))
                       .arg(histogram.mean(), 0, 'f', 1)
                       .arg(histogram.deviation(), 0, 'f', 1)
                       .arg(histogram.minimum())
                       .arg(histogram.maximum())
                       .arg(focus, 0, 'f', 1)
                       .arg(best, 0, 'f', 1);
    if (m_pattern != BayerPattern::None && region.width() > 1 && region.height() > 1) {
        const BayerChannels<double> means = channelMeans(image, m_pattern, region);
        text += tr("; R %1, G %2, B %3")
                    .arg(means[0], 0, 'f', 1)
                    .arg((means[1] + means[2]) / 2, 0, 'f', 1)
                    .arg(means[3], 0, 'f', 1);
    }
    return text;
}

} // namespace zrnview
