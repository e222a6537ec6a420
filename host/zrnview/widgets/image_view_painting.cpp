#include "zrnview/model/histogram.h"
#include "zrnview/model/screen_image.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/theme.h"

#include <QPainter>

#include <cmath>

namespace zrnview
{
namespace
{

constexpr double valueScale = 36; ///< from this scale on, pixels show their values

} // namespace

void ImageView::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    painter.fillRect(rect(), colours.imageBackground);
    if (m_image.isNull()) {
        painter.setPen(QColor(0xa8, 0xae, 0xb8));
        painter.drawText(rect().adjusted(8, 8, -8, -8), Qt::AlignCenter | Qt::TextWordWrap,
                         m_placeholder);
    } else {
        paintPicture(painter);
        paintValues(painter);
        if (m_crosshair) {
            paintLines(painter, QRectF(m_image.rect()).center());
        }
        if (m_cross) {
            paintLines(painter, QPointF(*m_cross) + QPointF(0.5, 0.5));
        }
        paintSelection(painter);
    }
    paintCaption(painter);
    if (hasFocus()) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawRect(rect().adjusted(1, 1, -1, -1));
    }
}

void ImageView::paintPicture(QPainter& painter) const
{
    const Colours colours = coloursFor(palette());
    ScreenImage screen = screenImage(
        m_image, m_transform, m_pattern,
        m_markClipped ? std::optional(ClippingMarks{colours.dark.rgb(), colours.bright.rgb()})
                      : std::nullopt);
    screen.image.setDevicePixelRatio(devicePixelRatioF());
    painter.drawImage(QPointF(screen.position) / devicePixelRatioF(), screen.image);
}

void ImageView::paintValues(QPainter& painter) const
{
    const double scale = m_transform.scale() / devicePixelRatioF();
    if (scale < valueScale) {
        return;
    }
    const QImage& image = m_image;
    const QPoint first = m_transform.toImage({0, 0}).toPoint();
    const QPointF corner = m_transform.toImage(QPointF(width(), height()) * devicePixelRatioF());
    painter.save();
    QFont font = painter.font();
    font.setPixelSize(static_cast<int>(scale / 3.2));
    painter.setFont(font);
    for (int y = std::max(first.y() - 1, 0); y < std::min<double>(image.height(), corner.y());
         ++y) {
        for (int x = std::max(first.x() - 1, 0); x < std::min<double>(image.width(), corner.x());
             ++x) {
            const int value = image.constScanLine(y)[x];
            const QPointF at = m_transform.toView(QPointF(x, y)) / devicePixelRatioF();
            painter.setPen(value < greyLevels / 2 ? QColor(0xd0, 0xd0, 0xd0)
                                                  : QColor(0x20, 0x20, 0x20));
            painter.drawText(QRectF(at, QSizeF(scale, scale)), Qt::AlignCenter,
                             QString::number(value));
        }
    }
    painter.restore();
}

/// A line across and one down, in a colour that differs from what lies below.
void ImageView::paintLines(QPainter& painter, QPointF imagePosition) const
{
    const QPointF at = m_transform.toView(imagePosition) / devicePixelRatioF();
    painter.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
    painter.setPen(QColor(0x60, 0x60, 0x60));
    painter.drawLine(QPointF(0, at.y()), QPointF(width(), at.y()));
    painter.drawLine(QPointF(at.x(), 0), QPointF(at.x(), height()));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

void ImageView::paintSelection(QPainter& painter) const
{
    if (m_tool == Tool::Pan) {
        return;
    }
    const auto place = [this](QPointF imagePosition) {
        return m_transform.toView(imagePosition) / devicePixelRatioF();
    };
    const QPointF middleOfPixel(0.5, 0.5);
    const QLineF line(place(QPointF(m_selection.from) + middleOfPixel),
                      place(QPointF(m_selection.to) + middleOfPixel));
    const QRect pixels = m_selection.rectangle();
    const QRectF rectangle(place(pixels.topLeft()), place(pixels.bottomRight() + QPoint(1, 1)));
    painter.setBrush(Qt::NoBrush);
    // Light on dark reads on any picture.
    for (const QPen& pen : {QPen(QColor(0x12, 0x13, 0x15), 3), QPen(QColor(0x5f, 0xd0, 0x7f), 1)}) {
        painter.setPen(pen);
        if (m_tool == Tool::Line) {
            painter.drawLine(line);
        } else {
            painter.drawRect(rectangle);
        }
    }
}

void ImageView::paintCaption(QPainter& painter) const
{
    if (m_caption.isEmpty()) {
        return;
    }
    QFont bold = painter.font();
    bold.setBold(true);
    painter.setFont(bold);
    const QFontMetrics metrics(bold);
    const int space = metrics.averageCharWidth();
    const QRect box(space, space, metrics.horizontalAdvance(m_caption) + 2 * space,
                    metrics.height() + space / 2);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x12, 0x13, 0x15, 190));
    painter.drawRoundedRect(box, 4, 4);
    painter.setPen(m_captionColour);
    painter.drawText(box, Qt::AlignCenter, m_caption);
    painter.setRenderHint(QPainter::Antialiasing, false);
}

} // namespace zrnview
