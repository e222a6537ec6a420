#pragma once

#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QSizeF>

namespace zrnview
{

/// Where an image lies in a view: screen = origin + scale x image. Kept apart from any widget, so
/// that several views can share one. Lengths of the view are in device pixels, so that a scale of 1
/// shows each image pixel as one pixel of the screen, whatever the screen's density.
///
/// The image never leaves the view: smaller than the view it is centred, larger it covers the view.
class ViewTransform
{
public:
    static constexpr double maximumScale = 64;

    /// Tells the sizes; a fitted image stays fitted. @param image in pixels @param view in pixels
    void setSizes(QSize image, QSizeF view);

    double scale() const { return m_scale; }
    QSizeF view() const { return m_view; }
    bool isFitted() const { return m_fitted; }

    /// The whole image, as large as the view allows, and so on whatever sizes change.
    void fit();
    /// Sets the scale, keeping the image point under @p anchor (view coordinates) in its place.
    /// Clamped between the fitted scale (or 1, if less) and maximumScale.
    void zoomTo(double scale, QPointF anchor);
    void panBy(QPointF distance);

    /// Where the image lies in the view.
    QRectF target() const;
    /// The image pixel position under a view position; may lie outside of the image.
    QPointF toImage(QPointF viewPosition) const;
    QPointF toView(QPointF imagePosition) const;
    QPointF centre() const { return {m_view.width() / 2, m_view.height() / 2}; }

    bool operator==(const ViewTransform&) const = default;

private:
    double fittedScale() const;
    void keepInView();

    QSize m_image;
    QSizeF m_view;
    double m_scale = 1;
    QPointF m_origin;
    bool m_fitted = true;
};

} // namespace zrnview
