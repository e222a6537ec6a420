#include "zrnview/widgets/image_view.h"

#include "zrnview/widgets/theme.h"

#include <QKeyEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>

namespace zrnview
{
namespace
{

constexpr double wheelStep = 1.25; ///< zoom for each notch of the wheel
constexpr double keyStep = 1.5;    ///< zoom for each key press
constexpr double valueScale = 36;  ///< from this scale on, pixels show their values
constexpr double arrowShare = 0.1; ///< of the view, for each arrow key
constexpr double wheelUnitsPerNotch = 120;

/// Grey levels with the two ends marked.
QVector<QRgb> markingTable(const Colours& colours)
{
    QVector<QRgb> table(greyLevels);
    for (int level = 0; level < greyLevels; ++level) {
        table[level] = qRgb(level, level, level);
    }
    table.first() = colours.dark.rgb();
    table.last() = colours.bright.rgb();
    return table;
}

} // namespace

ImageView::ImageView(QWidget* parent)
    : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setCursor(Qt::CrossCursor);
    setAccessibleName(tr("Image"));
}

void ImageView::show(std::shared_ptr<const Display> display, const Picture* picture)
{
    m_display = std::move(display);
    m_picture = picture;
    updateSizes();
    update();
}

void ImageView::setCaption(const QString& caption, const QColor& colour)
{
    if (caption != m_caption || colour != m_captionColour) {
        m_caption = caption;
        m_captionColour = colour;
        setAccessibleName(tr("Image %1").arg(caption));
        update();
    }
}

void ImageView::setPlaceholder(const QString& text)
{
    m_placeholder = text;
    update();
}

void ImageView::setMarkClipped(bool mark)
{
    m_markClipped = mark;
    update();
}

void ImageView::setCross(std::optional<QPoint> pixel)
{
    if (pixel != m_cross) {
        m_cross = pixel;
        update();
    }
}

void ImageView::setTransform(const ViewTransform& transform)
{
    m_transform = transform;
    updateSizes();
    update();
}

void ImageView::fit()
{
    m_transform.fit();
    changed();
}

void ImageView::zoomToOne()
{
    m_transform.zoomTo(1, m_transform.centre());
    changed();
}

void ImageView::zoomBy(double factor)
{
    m_transform.zoomTo(m_transform.scale() * factor, m_transform.centre());
    changed();
}

QSize ImageView::sizeHint() const
{
    return fontMetrics().size(0, QStringLiteral("0")) * 30;
}

QSize ImageView::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 16, fontMetrics().height() * 6};
}

void ImageView::updateSizes()
{
    if (m_picture) {
        m_transform.setSizes(m_picture->pyramid.size(), QSizeF(size()) * devicePixelRatioF());
    }
}

void ImageView::changed()
{
    update();
    emit transformChanged(m_transform);
}

void ImageView::paintEvent(QPaintEvent*)
{
    const Colours colours = coloursFor(palette());
    QPainter painter(this);
    painter.fillRect(rect(), colours.imageBackground);
    if (!m_picture) {
        painter.setPen(QColor(0xa8, 0xae, 0xb8));
        painter.drawText(rect().adjusted(8, 8, -8, -8), Qt::AlignCenter | Qt::TextWordWrap,
                         m_placeholder);
    } else {
        paintPicture(painter);
        paintValues(painter);
        paintCross(painter);
    }
    paintCaption(painter);
    if (hasFocus()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawRect(rect().adjusted(1, 1, -1, -1));
    }
}

void ImageView::paintPicture(QPainter& painter) const
{
    const int level = m_markClipped ? 0 : m_picture->pyramid.levelFor(m_transform.scale());
    QImage image = m_picture->pyramid.level(level);
    if (m_markClipped) {
        image.reinterpretAsFormat(QImage::Format_Indexed8);
        image.setColorTable(markingTable(coloursFor(palette())));
    }
    // Levels leave out an odd last row or column, so that each has a ratio of its own.
    const QSize full = m_picture->pyramid.size();
    const double ratio = 1 << level;
    const QRectF source(0, 0, std::floor(full.width() / ratio), std::floor(full.height() / ratio));
    QRectF target = m_transform.target();
    target.setWidth(source.width() * ratio * m_transform.scale());
    target.setHeight(source.height() * ratio * m_transform.scale());

    painter.save();
    painter.scale(1 / devicePixelRatioF(), 1 / devicePixelRatioF());
    painter.setRenderHint(QPainter::SmoothPixmapTransform,
                          m_transform.scale() < 1 && !m_markClipped);
    painter.drawImage(target, image, source);
    painter.restore();
}

void ImageView::paintValues(QPainter& painter) const
{
    const double scale = m_transform.scale() / devicePixelRatioF();
    if (scale < valueScale) {
        return;
    }
    const QImage& image = m_picture->pyramid.full();
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

void ImageView::paintCross(QPainter& painter) const
{
    if (!m_cross) {
        return;
    }
    const QPointF middle =
        m_transform.toView(QPointF(*m_cross) + QPointF(0.5, 0.5)) / devicePixelRatioF();
    painter.setPen(QPen(QColor(255, 255, 255, 110), 1));
    painter.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
    painter.setPen(QColor(0x60, 0x60, 0x60));
    painter.drawLine(QPointF(0, middle.y()), QPointF(width(), middle.y()));
    painter.drawLine(QPointF(middle.x(), 0), QPointF(middle.x(), height()));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
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

void ImageView::resizeEvent(QResizeEvent*)
{
    updateSizes();
}

void ImageView::wheelEvent(QWheelEvent* event)
{
    const double notches = event->angleDelta().y() / wheelUnitsPerNotch;
    m_transform.zoomTo(m_transform.scale() * std::pow(wheelStep, notches),
                       inDevicePixels(event->position()));
    changed();
}

void ImageView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragFrom = event->localPos();
        setCursor(Qt::ClosedHandCursor);
    }
}

void ImageView::mouseMoveEvent(QMouseEvent* event)
{
    if (m_dragFrom) {
        m_transform.panBy(inDevicePixels(event->localPos() - *m_dragFrom));
        m_dragFrom = event->localPos();
        changed();
    }
    if (!m_picture) {
        return;
    }
    const QPointF position = m_transform.toImage(inDevicePixels(event->localPos()));
    const QPoint pixel(static_cast<int>(std::floor(position.x())),
                       static_cast<int>(std::floor(position.y())));
    const bool inside = QRect(QPoint(), m_picture->pyramid.size()).contains(pixel);
    emit hovered(inside ? std::optional(pixel) : std::nullopt);
}

void ImageView::mouseReleaseEvent(QMouseEvent*)
{
    m_dragFrom.reset();
    setCursor(Qt::CrossCursor);
}

void ImageView::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (m_transform.isFitted()) {
        m_transform.zoomTo(1, inDevicePixels(event->localPos()));
        changed();
    } else {
        fit();
    }
}

void ImageView::leaveEvent(QEvent*)
{
    emit hovered(std::nullopt);
}

void ImageView::focusInEvent(QFocusEvent* event)
{
    QWidget::focusInEvent(event);
    emit activated();
}

void ImageView::keyPressEvent(QKeyEvent* event)
{
    const double stepX = width() * devicePixelRatioF() * arrowShare;
    const double stepY = height() * devicePixelRatioF() * arrowShare;
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoomBy(keyStep);
        return;
    case Qt::Key_Minus:
        zoomBy(1 / keyStep);
        return;
    case Qt::Key_F:
        fit();
        return;
    case Qt::Key_1:
        zoomToOne();
        return;
    case Qt::Key_Left:
        m_transform.panBy({stepX, 0});
        break;
    case Qt::Key_Right:
        m_transform.panBy({-stepX, 0});
        break;
    case Qt::Key_Up:
        m_transform.panBy({0, stepY});
        break;
    case Qt::Key_Down:
        m_transform.panBy({0, -stepY});
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    changed();
}

} // namespace zrnview
