#pragma once

#include "zrnview/model/histogram.h"

#include <QWidget>

namespace zrnview
{

/// The histogram of one image, with the share of pixels that are clipped at either end.
class HistogramView : public QWidget
{
    Q_OBJECT

public:
    /// @param letter 'A' or 'B'
    explicit HistogramView(char letter, QWidget* parent = nullptr);

    /// @param histogram null when there is no image
    void show(const Histogram* histogram);
    /// Draws heights on a logarithmic scale, which shows rare levels too.
    void setLogarithmic(bool logarithmic);
    bool isLogarithmic() const { return m_logarithmic; }
    const Histogram& histogram() const { return m_histogram; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    void logarithmicChanged(bool logarithmic);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    /// Writes the shares of clipped pixels. @return the room that is left before them
    QRect paintClipping(QPainter& painter, const QRect& head) const;
    void paintBars(QPainter& painter, const QRectF& area) const;

    char m_letter;
    bool m_present = false;
    bool m_logarithmic = false;
    Histogram m_histogram;
};

} // namespace zrnview
