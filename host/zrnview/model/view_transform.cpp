#include "zrnview/model/view_transform.h"

#include <algorithm>

namespace zrnview
{
namespace
{

double keptInView(double origin, double length, double view)
{
    if (length <= view) {
        return (view - length) / 2;
    }
    return std::clamp(origin, view - length, 0.0);
}

} // namespace

void ViewTransform::setSizes(QSize image, QSizeF view)
{
    if (image == m_image && view == m_view) {
        return;
    }
    const QPointF middle = toImage(centre());
    m_image = image;
    m_view = view;
    if (m_fitted) {
        fit();
        return;
    }
    m_origin = centre() - middle * m_scale;
    keepInView();
}

void ViewTransform::fit()
{
    m_fitted = true;
    m_scale = fittedScale();
    keepInView();
}

void ViewTransform::zoomTo(double scale, QPointF anchor)
{
    const QPointF held = toImage(anchor);
    m_fitted = false;
    m_scale = std::clamp(scale, std::min(fittedScale(), 1.0), maximumScale);
    m_origin = anchor - held * m_scale;
    keepInView();
}

void ViewTransform::panBy(QPointF distance)
{
    m_origin += distance;
    keepInView();
}

QRectF ViewTransform::target() const
{
    return {m_origin, QSizeF(m_image) * m_scale};
}

QPointF ViewTransform::toImage(QPointF viewPosition) const
{
    return (viewPosition - m_origin) / m_scale;
}

QPointF ViewTransform::toView(QPointF imagePosition) const
{
    return m_origin + imagePosition * m_scale;
}

double ViewTransform::fittedScale() const
{
    if (m_image.isEmpty() || m_view.isEmpty()) {
        return 1;
    }
    return std::min(m_view.width() / m_image.width(), m_view.height() / m_image.height());
}

void ViewTransform::keepInView()
{
    m_origin.setX(keptInView(m_origin.x(), m_image.width() * m_scale, m_view.width()));
    m_origin.setY(keptInView(m_origin.y(), m_image.height() * m_scale, m_view.height()));
}

} // namespace zrnview
