#pragma once

#include "zrnview/model/series.h"

#include <QColor>
#include <QTimer>
#include <QWidget>

namespace zrnview
{

/// A small running plot of one or two quantities, with a headline.
class RunningPlot : public QWidget
{
    Q_OBJECT

public:
    enum class Style {
        Line,  ///< scaled between zero and a round number above the highest value
        Range, ///< scaled between the lowest and the highest value
        Bars,  ///< a bar for each value above zero
    };
    enum class Tone { Normal, Attention };

    static constexpr double spanSeconds = 20;

    RunningPlot(const QString& title, Style style, QWidget* parent = nullptr);

    /// Adds to the first or the second line. @param line 0 or 1
    void add(int line, double seconds, double value);
    void clear();
    /// Current value as text, with its unit.
    void setHeadline(const QString& text, Tone tone = Tone::Normal);
    QString headline() const { return m_headline; }
    /// Names the two lines in their colours.
    void setLegend(const QString& first, const QString& second);
    const Series& series(int line) const { return m_lines[line]; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct Scale {
        double bottom;
        double top;
    };
    Scale scaleOf() const;
    void paintHead(QPainter& painter, const QRect& head) const;
    void paintLegend(QPainter& painter, const QRectF& area) const;
    void paintLine(QPainter& painter, const QRectF& area, const Scale& scale, const Series& line,
                   const QColor& colour) const;

    QString m_title;
    Style m_style;
    QString m_headline;
    QString m_legend[2];
    Tone m_tone = Tone::Normal;
    QTimer m_repaint;
    Series m_lines[2] = {Series(spanSeconds), Series(spanSeconds)};
};

} // namespace zrnview
