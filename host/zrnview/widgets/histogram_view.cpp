#include "zrnview/widgets/histogram_view.h"

#include "zrnview/widgets/theme.h"

#include <QKeyEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

/// A share of clipped pixels from here on deserves attention.
constexpr double notableShare = 0.001;

QString percent(double share)
{
    return QStringLiteral("%1 %").arg(share * 100, 0, 'f', share < 0.0995 ? 1 : 0);
}

} // namespace

HistogramView::HistogramView(char letter, QWidget* parent)
    : QWidget(parent)
    , m_letter(letter)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Histogram of image %1").arg(QLatin1Char(letter)));
    setToolTip(tr("Grey levels from 0 to 255. Blue: pixels at 0, red: pixels at 255. "
                  "Double-click, or Space, for a logarithmic scale."));
}

void HistogramView::show(const Histogram* histogram)
{
    m_present = histogram != nullptr;
    if (histogram) {
        m_histogram = *histogram;
    }
    update();
}

void HistogramView::setLogarithmic(bool logarithmic)
{
    if (logarithmic != m_logarithmic) {
        m_logarithmic = logarithmic;
        update();
        emit logarithmicChanged(logarithmic);
    }
}

QSize HistogramView::sizeHint() const
{
    return {fontMetrics().averageCharWidth() * 36, fontMetrics().height() * 5};
}

QSize HistogramView::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 24, fontMetrics().height() * 4};
}

void HistogramView::mouseDoubleClickEvent(QMouseEvent*)
{
    setLogarithmic(!m_logarithmic);
}

void HistogramView::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Space) {
        setLogarithmic(!m_logarithmic);
        return;
    }
    QWidget::keyPressEvent(event);
}

void HistogramView::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    const QFontMetrics metrics = fontMetrics();
    const int space = metrics.averageCharWidth() / 2;
    const QRect head(space, 0, width() - 2 * space, metrics.height());
    painter.setPen(m_letter == 'A' ? colours.imageA : colours.imageB);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.drawText(head, Qt::AlignLeft | Qt::AlignVCenter, QString(QLatin1Char(m_letter)));
    painter.setFont(font());

    const QRectF area(0.5, metrics.height() + 2.5, width() - 1, height() - metrics.height() - 4);
    painter.setPen(hasFocus() ? palette().color(QPalette::Highlight) : colours.grid);
    painter.setBrush(colours.plotBackground);
    painter.drawRect(area);
    if (!m_present || m_histogram.pixels == 0) {
        return;
    }
    paintBars(painter, area.adjusted(1, 1, -1, 0));
    const QString mean = tr("mean %1").arg(m_histogram.mean(), 0, 'f', 1);
    const QRect free = paintClipping(painter, head);
    painter.setPen(colours.dimText);
    if (metrics.horizontalAdvance(mean) <= free.width()) {
        painter.drawText(free, Qt::AlignLeft | Qt::AlignVCenter, mean);
        return;
    }
    painter.setFont(smallFont(font()));
    QRectF box = painter.boundingRect(area.adjusted(space, 1, 0, 0), Qt::AlignLeft, mean);
    box.adjust(-1, 0, 1, 0);
    painter.fillRect(box, colours.plotBackground); // over bars that reach that high
    painter.drawText(box, Qt::AlignCenter, mean);
}

QRect HistogramView::paintClipping(QPainter& painter, const QRect& head) const
{
    const Colours colours = coloursFor(palette());
    const QFontMetrics metrics = fontMetrics();
    const int gap = 2 * metrics.averageCharWidth();
    const double dark = m_histogram.darkShare();
    const double bright = m_histogram.brightShare();
    const QString brightText = tr("255: %1").arg(percent(bright));
    const QString darkText = tr("0: %1").arg(percent(dark));
    QRect free = head.adjusted(gap, 0, 0, 0); // behind the letter
    painter.setPen(bright >= notableShare ? colours.fault : colours.dimText);
    painter.drawText(free, Qt::AlignRight | Qt::AlignVCenter, brightText);
    free.setRight(free.right() - metrics.horizontalAdvance(brightText) - gap);
    painter.setPen(dark >= notableShare ? colours.imageA : colours.dimText);
    painter.drawText(free, Qt::AlignRight | Qt::AlignVCenter, darkText);
    free.setRight(free.right() - metrics.horizontalAdvance(darkText) - gap);
    return free;
}

void HistogramView::paintBars(QPainter& painter, const QRectF& area) const
{
    // The ends may be far higher than the rest, which must stay readable.
    const auto inner =
        std::max_element(m_histogram.counts.begin() + 1, m_histogram.counts.end() - 1);
    const double full = std::max<double>(*inner, 1);
    const auto height = [&](quint32 count) {
        const double share = m_logarithmic ? std::log1p(count) / std::log1p(full)
                                           : static_cast<double>(count) / full;
        return std::min(share, 1.0) * area.height();
    };
    const Colours colours = coloursFor(palette());
    const QColor colour = m_letter == 'A' ? colours.imageA : colours.imageB;
    const double step = area.width() / greyLevels;
    for (int level = 0; level < greyLevels; ++level) {
        const bool isEnd = level == 0 || level == greyLevels - 1;
        const double bar = height(m_histogram.counts.at(static_cast<std::size_t>(level)));
        // The clipped levels are drawn wider than one step, or nobody would see them.
        const double width = isEnd ? std::max(step, 3.0) : step;
        const double left =
            level == greyLevels - 1 ? area.right() - width : area.left() + level * step;
        painter.fillRect(QRectF(left, area.bottom() - bar, width, bar), level == 0 ? colours.dark
                                                                        : isEnd    ? colours.bright
                                                                                   : colour);
    }
}

} // namespace zrnview
