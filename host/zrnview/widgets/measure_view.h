#pragma once

#include "zrnview/model/bayer.h"
#include "zrnview/model/measures.h"
#include "zrnview/model/picture.h"
#include "zrnview/widgets/image_view.h"

#include <QLabel>
#include <QTimer>
#include <QWidget>

#include <memory>

namespace zrnview
{

/// The levels along a line of each image.
class ProfilePlot : public QWidget
{
    Q_OBJECT

public:
    explicit ProfilePlot(QWidget* parent = nullptr);

    using Levels = std::vector<unsigned char>;
    /// @param a of image A, @param b of image B; empty without that image
    void show(Levels a, Levels b);
    const Levels& levels(char letter) const { return letter == 'A' ? m_a : m_b; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void paintLine(QPainter& painter, const QRectF& area, const Levels& levels,
                   const QColor& colour) const;

    Levels m_a;
    Levels m_b;
};

/// What is measured in the images of a source: the profile of a line, or statistics and focus of a
/// rectangle. Follows the stream several times a second.
class MeasureView : public QWidget
{
    Q_OBJECT

public:
    explicit MeasureView(QWidget* parent = nullptr);

    void setTool(Tool tool);
    void setSelection(const Selection& selection);
    void setPattern(BayerPattern pattern);
    void show(std::shared_ptr<const Display> display);

    QString text() const { return m_text->text(); }
    ProfilePlot& plot() { return *m_plot; }

private:
    void measure();
    QString describe(char letter, const QImage& image);
    void measureSoon();

    Tool m_tool = Tool::Pan;
    Selection m_selection;
    BayerPattern m_pattern = BayerPattern::None;
    std::shared_ptr<const Display> m_display;
    double m_bestFocus[2] = {}; // of A and B, since the rectangle was chosen
    QTimer m_timer;
    ProfilePlot* m_plot;
    QLabel* m_text;
};

} // namespace zrnview
