#pragma once

#include "zrnview/model/frame.h"

#include <QTimer>
#include <QWidget>

#include <memory>
#include <vector>

namespace zrnview
{

struct Display;
class FrameStation;
class HistogramView;
class PaneArea;
class RunningPlot;

/// Everything that is seen of one source of frames: images, running plots, histograms. Asks the
/// station for the newest frame at its own pace.
class FramePanel : public QWidget
{
    Q_OBJECT

public:
    /// @param station outlives the panel
    explicit FramePanel(FrameStation& station, QWidget* parent = nullptr);

    PaneArea& panes() { return *m_panes; }
    HistogramView& histogram(char letter) { return letter == 'A' ? *m_histogramA : *m_histogramB; }
    RunningPlot& ratePlot() { return *m_rate; }
    RunningPlot& missingPlot() { return *m_missing; }
    RunningPlot& latencyPlot() { return *m_latency; }
    RunningPlot& numberPlot() { return *m_number; }
    /// The frame that is shown; null before the first.
    const std::shared_ptr<const Display>& display() const { return m_display; }
    /// Whether histograms and plots are shown where there is room for them.
    void setGraphsWanted(bool wanted);
    bool showsGraphs() const { return m_graphs->isVisibleTo(this); }
    QSize minimumSizeHint() const override;
    /// How often the newest frame is shown: once in each refresh of the screen.
    std::chrono::milliseconds refreshPeriod() const { return m_timer.intervalAsDuration(); }

signals:
    void shown();

protected:
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void showGraphs();
    void refresh();
    void amplify(int factor);
    void restart();
    void showHistograms();
    void plot(const std::vector<FrameSample>& samples);
    void plotLatency();

    FrameStation& m_station;
    PaneArea* m_panes;
    QWidget* m_graphs; // histograms and plots
    bool m_wantsGraphs = true;
    RunningPlot* m_number;
    RunningPlot* m_rate;
    RunningPlot* m_missing;
    RunningPlot* m_latency;
    HistogramView* m_histogramA;
    HistogramView* m_histogramB;
    QTimer m_timer;
    QTimer m_histogramTimer;
    std::shared_ptr<const Display> m_display;
    FrameSample m_newest;
    bool m_hasNews = false; // since the headlines were set
    quint64 m_missingFrames = 0;
    double m_latencyMilliseconds = 0; // of the frame on the screen
    Clock::time_point m_lastHeadlines;
};

} // namespace zrnview
