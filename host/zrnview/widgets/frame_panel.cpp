#include "zrnview/widgets/frame_panel.h"

#include "zrnview/device/frame_station.h"
#include "zrnview/widgets/histogram_view.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/running_plot.h"

#include <QHBoxLayout>
#include <QScreen>
#include <QVBoxLayout>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr double slowestScreen = 20; ///< refreshes per second; below it, the screen does not know
constexpr auto usualRefreshPeriod = 16ms;
constexpr auto histogramPeriod = 100ms;
constexpr auto headlinePeriod = 250ms; ///< numbers that change faster cannot be read

} // namespace

FramePanel::FramePanel(FrameStation& station, QWidget* parent)
    : QWidget(parent)
    , m_station(station)
    , m_panes(new PaneArea(this))
    , m_graphs(new QWidget(this))
    , m_number(new RunningPlot(tr("Frame"), RunningPlot::Style::Range, this))
    , m_rate(new RunningPlot(tr("Rate"), RunningPlot::Style::Line, this))
    , m_missing(new RunningPlot(tr("Missing"), RunningPlot::Style::Bars, this))
    , m_latency(new RunningPlot(tr("Latency"), RunningPlot::Style::Line, this))
    , m_histogramA(new HistogramView('A', this))
    , m_histogramB(new HistogramView('B', this))
{
    m_number->setToolTip(tr("Number that the camera gave to the frame, over the last 20 s"));
    m_rate->setToolTip(tr("Frames per second over the last second, as they arrive here"));
    m_missing->setToolTip(
        tr("Frame numbers that were skipped: lost on the way, or left out because "
           "the newest frame is taken first"));
    m_latency->setToolTip(tr("Blue: from a frame's arrival here until it is on the screen. "
                             "Orange: how long the grab waited for it and unpacked it."));
    m_latency->setLegend(tr("to the screen"), tr("in the grab"));

    auto* plots = new QHBoxLayout;
    for (RunningPlot* plot : {m_number, m_rate, m_missing}) {
        plots->addWidget(plot, 5);
    }
    plots->addWidget(m_latency, 6); // has the longest heading
    auto* histograms = new QHBoxLayout;
    histograms->addWidget(m_histogramA);
    histograms->addWidget(m_histogramB);
    auto* graphs = new QVBoxLayout(m_graphs);
    graphs->setContentsMargins(0, 0, 0, 0);
    graphs->addLayout(histograms);
    graphs->addLayout(plots);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_panes, 1);
    layout->addWidget(m_graphs);

    connect(m_panes, &PaneArea::amplificationChanged, this, &FramePanel::amplify);
    connect(m_histogramA, &HistogramView::logarithmicChanged, m_histogramB,
            &HistogramView::setLogarithmic);
    connect(m_histogramB, &HistogramView::logarithmicChanged, m_histogramA,
            &HistogramView::setLogarithmic);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(usualRefreshPeriod);
    connect(&m_timer, &QTimer::timeout, this, &FramePanel::refresh);
    m_timer.start();
    m_histogramTimer.setSingleShot(true);
    m_histogramTimer.setInterval(histogramPeriod);
    connect(&m_histogramTimer, &QTimer::timeout, this, &FramePanel::showHistograms);
}

void FramePanel::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    const double rate = screen()->refreshRate();
    m_timer.setInterval(rate < slowestScreen
                            ? usualRefreshPeriod
                            : std::chrono::milliseconds(static_cast<int>(1000 / rate)));
}

/// Also the frame that is shown, which may be the last one.
void FramePanel::amplify(int factor)
{
    m_station.setAmplification(factor);
    if (m_display && factor > 0) {
        m_display = std::make_shared<const Display>(prepare(m_display->source, factor));
        m_panes->show(m_display);
    }
}

/// Empties plots and counts.
void FramePanel::restart()
{
    m_missingFrames = 0;
    for (RunningPlot* plot : {m_number, m_rate, m_missing, m_latency}) {
        plot->clear();
    }
}

void FramePanel::setGraphsWanted(bool wanted)
{
    m_wantsGraphs = wanted;
    showGraphs();
}

QSize FramePanel::minimumSizeHint() const
{
    return m_panes->minimumSizeHint();
}

void FramePanel::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    showGraphs();
}

/// In a panel that is too low for both the images come first.
void FramePanel::showGraphs()
{
    const int room = height() - m_panes->minimumSizeHint().height() - layout()->spacing();
    m_graphs->setVisible(m_wantsGraphs && room >= m_graphs->minimumSizeHint().height());
}

void FramePanel::refresh()
{
    plot(m_station.takeSamples());
    std::shared_ptr<const Display> display = m_station.takeDisplay();
    if (!display) {
        return;
    }
    m_display = std::move(display);
    m_panes->show(m_display);
    m_histogramA->setVisible(!m_display->a.isNull());
    m_histogramB->setVisible(!m_display->b.isNull());
    if (!m_histogramTimer.isActive()) {
        m_histogramTimer.start();
    }
    plotLatency();
    emit shown();
}

/// Those of the frame that is shown, which may be the last one.
void FramePanel::showHistograms()
{
    for (const auto& [view, image] :
         {std::pair(m_histogramA, m_display->a), std::pair(m_histogramB, m_display->b)}) {
        if (image.isNull()) {
            view->show(nullptr);
        } else {
            const Histogram histogram = histogramOf(image, image.rect());
            view->show(&histogram);
        }
    }
}

void FramePanel::plot(const std::vector<FrameSample>& samples)
{
    for (const FrameSample& sample : samples) {
        if (sample.isFirst) {
            restart();
        }
        m_missingFrames += sample.missing;
        if (sample.number != m_newest.number + 1 + sample.missing) {
            m_number->clear(); // its upper bytes have become known
        }
        m_newest = sample;
        m_hasNews = true;
        m_number->add(0, sample.seconds, sample.number);
        m_rate->add(0, sample.seconds, sample.rate);
        m_missing->add(0, sample.seconds, sample.missing);
        if (sample.waitMilliseconds > 0) {
            m_latency->add(1, sample.seconds, sample.waitMilliseconds);
        }
    }
    const Clock::time_point now = Clock::now();
    if (!m_hasNews || now - m_lastHeadlines < headlinePeriod) {
        return;
    }
    m_hasNews = false;
    m_lastHeadlines = now;
    m_number->setHeadline(QString::number(m_newest.number));
    m_rate->setHeadline(tr("%1 /s").arg(m_newest.rate, 0, 'f', 1));
    m_missing->setHeadline(QString::number(m_missingFrames), m_missingFrames > 0
                                                                 ? RunningPlot::Tone::Attention
                                                                 : RunningPlot::Tone::Normal);
    m_latency->setHeadline(tr("%1 ms").arg(m_latencyMilliseconds, 0, 'f', 0));
}

void FramePanel::plotLatency()
{
    const std::chrono::duration<double, std::milli> delay =
        Clock::now() - m_display->source.handedOver;
    m_latency->add(0, m_display->source.seconds, delay.count());
    m_latencyMilliseconds = delay.count();
}

} // namespace zrnview
