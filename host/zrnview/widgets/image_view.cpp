#include "zrnview/widgets/image_view.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <cmath>

namespace zrnview
{
namespace
{

constexpr double wheelStep = 1.25; ///< zoom for each notch of the wheel
constexpr double keyStep = 1.5;    ///< zoom for each key press
constexpr double arrowShare = 0.1; ///< of the view, for each arrow key
constexpr double wheelUnitsPerNotch = 120;

QPointF positionOf(const QMouseEvent& event)
{
#if QT_VERSION_MAJOR < 6
    return event.localPos();
#else
    return event.position();
#endif
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

void ImageView::show(const QImage& image)
{
    if (image.constBits() == m_image.constBits()) {
        return;
    }
    m_image = image;
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

void ImageView::setPattern(BayerPattern pattern)
{
    if (pattern != m_pattern) {
        m_pattern = pattern;
        update();
    }
}

void ImageView::setTool(Tool tool)
{
    m_tool = tool;
    update();
}

void ImageView::setSelection(const Selection& selection)
{
    m_selection = selection;
    update();
}

void ImageView::setCrosshair(bool shown)
{
    m_crosshair = shown;
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
    emit scaleChanged();
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
    if (!m_image.isNull()) {
        const double before = m_transform.scale();
        m_transform.setSizes(m_image.size(), QSizeF(size()) * devicePixelRatioF());
        if (m_transform.scale() != before) {
            emit scaleChanged();
        }
    }
}

void ImageView::changed()
{
    update();
    emit scaleChanged();
    emit transformChanged(m_transform);
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
    const bool selects = event->button() == Qt::LeftButton && m_tool != Tool::Pan;
    if (selects && !m_image.isNull()) {
        m_selectFrom = pixelAt(positionOf(*event));
    } else if (event->button() == Qt::LeftButton || event->button() == Qt::MiddleButton) {
        m_dragFrom = positionOf(*event);
        setCursor(Qt::ClosedHandCursor);
    }
}

void ImageView::mouseMoveEvent(QMouseEvent* event)
{
    if (m_dragFrom) {
        m_transform.panBy(inDevicePixels(positionOf(*event) - *m_dragFrom));
        m_dragFrom = positionOf(*event);
        changed();
    }
    if (m_image.isNull()) {
        return;
    }
    const QPoint pixel = pixelAt(positionOf(*event));
    if (m_selectFrom) {
        emit selected(within({*m_selectFrom, pixel}, m_image.size()));
    }
    emit hovered(m_image.rect().contains(pixel) ? std::optional(pixel) : std::nullopt);
}

void ImageView::mouseReleaseEvent(QMouseEvent*)
{
    m_dragFrom.reset();
    m_selectFrom.reset();
    setCursor(Qt::CrossCursor);
}

QPoint ImageView::pixelAt(QPointF position) const
{
    const QPointF inImage = m_transform.toImage(inDevicePixels(position));
    return {static_cast<int>(std::floor(inImage.x())), static_cast<int>(std::floor(inImage.y()))};
}

void ImageView::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (m_transform.isFitted()) {
        m_transform.zoomTo(1, inDevicePixels(positionOf(*event)));
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
