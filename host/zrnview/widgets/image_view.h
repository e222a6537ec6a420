#pragma once

#include "zrnview/model/bayer.h"
#include "zrnview/model/measures.h"
#include "zrnview/model/view_transform.h"

#include <QImage>
#include <QWidget>

#include <optional>

namespace zrnview
{

/// What a drag in an image does.
enum class Tool { Pan, Line, Rectangle };

/// Shows one picture: zoom with the wheel or + and -, pan by dragging or with the arrow keys, F to
/// fit, 1 for one screen pixel for each image pixel. Close up, each pixel shows its value. While
/// something is measured, a drag selects where, and the middle button pans.
class ImageView : public QWidget
{
    Q_OBJECT

public:
    explicit ImageView(QWidget* parent = nullptr);

    /// @param image of Format_Grayscale8; a null one shows an empty view
    void show(const QImage& image);
    /// Text in the corner that says which picture this is, and its colour.
    void setCaption(const QString& caption, const QColor& colour);
    /// Text in an empty view.
    void setPlaceholder(const QString& text);
    void setMarkClipped(bool mark);
    void setPattern(BayerPattern pattern);
    BayerPattern pattern() const { return m_pattern; }
    void setTool(Tool tool);
    /// Where something is measured.
    void setSelection(const Selection& selection);
    /// Shows the middle of the image.
    void setCrosshair(bool shown);
    /// Shows where the pointer is, in this view or one that is linked to it.
    void setCross(std::optional<QPoint> pixel);

    const ViewTransform& transform() const { return m_transform; }
    /// Takes over zoom and position from a linked view.
    void setTransform(const ViewTransform& transform);
    void fit();
    void zoomToOne();
    void zoomBy(double factor);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    /// The scale is another one, whether the user or the view's size changed it.
    void scaleChanged();
    /// The user zoomed or panned.
    void transformChanged(const zrnview::ViewTransform& transform);
    /// @param pixel nothing when the pointer is not over the image
    void hovered(const std::optional<QPoint>& pixel);
    void activated();
    /// The user chose where to measure.
    void selected(const zrnview::Selection& selection);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void updateSizes();
    void changed();
    QPoint pixelAt(QPointF position) const;
    QPointF inDevicePixels(QPointF position) const { return position * devicePixelRatioF(); }
    void paintPicture(QPainter& painter) const;
    void paintValues(QPainter& painter) const;
    void paintLines(QPainter& painter, QPointF imagePosition) const;
    void paintSelection(QPainter& painter) const;
    void paintCaption(QPainter& painter) const;

    QImage m_image;
    ViewTransform m_transform;
    QString m_caption;
    QColor m_captionColour;
    QString m_placeholder;
    bool m_markClipped = false;
    BayerPattern m_pattern = BayerPattern::None;
    std::optional<QPoint> m_cross;
    bool m_crosshair = false;
    Tool m_tool = Tool::Pan;
    Selection m_selection;
    std::optional<QPointF> m_dragFrom;
    std::optional<QPoint> m_selectFrom;
};

} // namespace zrnview
