// What the viewer looks like: takes the pictures that the documents show, and checks that all text
// in them can be read.

#include "clipping.h"
#include "live_window.h"
#include "recorded.h"
#include "zrnview/widgets/controls_panel.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/running_plot.h"

#include <QApplication>
#include <QToolButton>

#include <algorithm>
#include <vector>

using namespace zrnview;

namespace
{

/// Colours and size of the text, until the end of the scope.
class Look
{
public:
    explicit Look(Theme theme, double textScale = 1)
        : m_before(QApplication::font())
    {
        QFont font = m_before;
        font.setPointSizeF(font.pointSizeF() * textScale);
        QApplication::setFont(font);
        applyTheme(theme);
    }
    ~Look()
    {
        applyTheme(Theme::System);
        QApplication::setFont(m_before);
    }
    Look(const Look&) = delete;
    Look& operator=(const Look&) = delete;

private:
    QFont m_before;
};

/// How much of a stream the running plots shall show: enough for all headings to be there, or what
/// ZRN_PLOT_SECONDS asks of pictures that are to be looked at.
double plotSeconds()
{
    constexpr double allHeadings = 1.2;
    bool given = false;
    const double seconds = qEnvironmentVariable("ZRN_PLOT_SECONDS").toDouble(&given);
    return given ? seconds : allHeadings;
}

/// Waits until the plots have gone on for so long, by the times of the frames.
bool waitForPlots(const std::vector<FramePanel*>& panels, double seconds = plotSeconds())
{
    const auto line = [](FramePanel* panel) -> const Series& {
        return panel->ratePlot().series(0);
    };
    std::vector<double> begins;
    for (FramePanel* panel : panels) {
        if (!QTest::qWaitFor([&] { return !line(panel).isEmpty(); }, patience)) {
            return false;
        }
        begins.push_back(line(panel).newest().seconds);
    }
    const auto areLongEnough = [&] {
        return std::equal(
            panels.begin(), panels.end(), begins.begin(), [&](FramePanel* panel, double begin) {
                return !line(panel).isEmpty() && line(panel).newest().seconds - begin >= seconds;
            });
    };
    return QTest::qWaitFor(areLongEnough, patience);
}

bool waitForPlots(LiveWindow& live)
{
    std::vector<FramePanel*> panels;
    for (CameraPanel* panel : live.window.panels()) {
        panels.push_back(&panel->frames());
    }
    return waitForPlots(panels);
}

/// Checks the window and saves its picture into the folder that the environment names.
void capture(QWidget& window, const char* name)
{
    QCoreApplication::processEvents();
    const QImage picture = window.grab().toImage().convertToFormat(QImage::Format_RGB888);
    const QString folder = qEnvironmentVariable("ZRN_SCREENSHOTS");
    if (!folder.isEmpty()) {
        QVERIFY(QDir().mkpath(folder));
        const QString path = QStringLiteral("%1/zrnview-%2.png").arg(folder, QLatin1String(name));
        QVERIFY2(picture.save(path), qPrintable(path));
    }
    const QStringList clipped = clippedTexts(window);
    QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QLatin1Char('\n'))));
}

void chooseValue(LiveWindow& live, Setting setting, int value)
{
    ControlRow& row = live.window.side().controls()->row(setting);
    const QString expected = QStringLiteral("= ") + QLocale().toString(value);
    row.field().setValue(value);
    QTRY_COMPARE_WITH_TIMEOUT(row.readBack(), expected, patience);
}

} // namespace

class LookTest : public QObject
{
    Q_OBJECT

private slots:
    void twoCamerasInBothThemes_data()
    {
        QTest::addColumn<int>("theme");
        QTest::newRow("light") << static_cast<int>(Theme::Light);
        QTest::newRow("dark") << static_cast<int>(Theme::Dark);
    }

    void twoCamerasInBothThemes()
    {
        QFETCH(int, theme);
        const Look look(static_cast<Theme>(theme));
        VirtualCamera camera(0);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        live.panelOf(camera);
        QVERIFY(waitForPlots(live));
        chooseValue(live, Setting::RGain, 140 + theme);
        capture(live.window, QTest::currentDataTag());
    }

    void theDifferenceOfTwoImages()
    {
        const Look look(Theme::Dark);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        FramePanel& frames = live.window.panels().front()->frames();
        frames.panes().setMode(ViewMode::Difference);
        live.window.side().setCurrentIndex(1);
        QVERIFY(waitForPlots(live));
        QTRY_VERIFY_WITH_TIMEOUT(!frames.display()->difference.isNull(), patience);
        capture(live.window, "difference");
    }

    void singlePixelsWithTheirValues()
    {
        const Look look(Theme::Light);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        PaneArea& panes = live.window.panels().front()->frames().panes();
        ImageView& view = panes.view(0);
        const QPointF at = view.rect().center() - QPoint(80, 20);
        QMouseEvent move(QEvent::MouseMove, at, at, Qt::NoButton, Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(&view, &move);
        view.zoomBy(1000);
        panes.setMarkClipped(true);
        QVERIFY(waitForPlots(live));
        capture(live.window, "pixels");
    }

    void whatIsMeasuredInColours()
    {
        const Look look(Theme::Dark);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        PaneArea& panes = live.window.panels().front()->frames().panes();
        panes.setPattern(BayerPattern::Rggb);
        panes.setTool(Tool::Rectangle);
        panes.setCrosshair(true);
        QVERIFY(waitForPlots(live));
        QTRY_VERIFY_WITH_TIMEOUT(panes.measures().text().contains(QStringLiteral("focus")),
                                 patience);
        capture(live.window, "measures");
    }

    void textAtTwiceItsSize()
    {
        const Look look(Theme::Light, 2);
        VirtualCamera camera(0);
        LiveWindow live(1);
        live.window.resize(1920, 1080);
        QVERIFY(live.waitForStreams(1));
        QVERIFY(waitForPlots(live));
        QVERIFY2(live.window.width() <= 1920, "the window needs more than the screen");
        capture(live.window, "200-percent");
    }

    void aRefusedValue()
    {
        const Look look(Theme::Light);
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        live.panelOf(camera);
        camera.tell("control-fault",
                    {{"action", "stall"}, {"request", "set-cur"}, {"target", "brightness"}});
        ControlRow& row = live.window.side().controls()->row(Setting::Exposure);
        row.field().setValue(9000);
        QTRY_VERIFY_WITH_TIMEOUT(row.message().contains(QStringLiteral("1037")), patience);
        QVERIFY(waitForPlots(live));
        capture(live.window, "refused");
    }

    void aCameraThatSendsNothing()
    {
        const Look look(Theme::Light);
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        QVERIFY(waitForPlots(live));
        camera.tell("freeze");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Silent, patience);
        QTRY_VERIFY_WITH_TIMEOUT(!panel.notice().remedy().isEmpty(), patience);
        capture(live.window, "silent");
        camera.tell("thaw");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Streaming, patience);
    }

    void aRecordingAndItsPlayback()
    {
        const Look look(Theme::Dark);
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        live.window.side().setCurrentIndex(2);
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(panel.device().isRecording(), patience);
        panel.device().set(Setting::Gain, 40);
        QVERIFY(waitForPlots(live));
        capture(live.window, "recording");
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(!panel.device().isRecording(), patience);
        PlaybackPanel& playback =
            live.window.openRecording(QFile::decodeName(fileOf(panel.device()).c_str()));
        QTRY_VERIFY_WITH_TIMEOUT(playback.frames().display() != nullptr, patience);
        playback.togglePlaying();
        QVERIFY(waitForPlots({&playback.frames()}, plotSeconds() / 2));
        capture(live.window, "playback");
    }

    void anUnpluggedCamera()
    {
        const Look look(Theme::Light);
        VirtualCamera camera(0);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        CameraPanel& panel = live.panelOf(camera);
        QVERIFY(waitForPlots(live));
        camera.tell("unplug");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Lost, patience);
        QTRY_VERIFY_WITH_TIMEOUT(panel.notice().isVisible(), patience);
        capture(live.window, "unplugged");
        camera.tell("plug");
        QVERIFY(live.waitForStreams(2));
    }

    void aSmallScreen()
    {
        const Look look(Theme::Light);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        live.window.resize(1024, 600);
        QVERIFY(waitForPlots(live));
        capture(live.window, "small-screen");
    }

    void theFirstPage()
    {
        const Look look(Theme::Light);
        VirtualCamera first(0);
        VirtualCamera second(1);
        first.tell("unplug");
        second.tell("unplug");
        Bench bench([] { return zrn::Driver::load(ZRN_PLUGIN_PATH); });
        WindowOptions options;
        options.startVirtual = [] { return QString(); };
        options.examine = [] { return zrn::judgeBus({}); };
        MainWindow window(bench, options);
        window.resize(1200, 700);
        window.show();
        bench.start();
        QTRY_VERIFY_WITH_TIMEOUT(
            window.firstPage().text().contains(QStringLiteral("No camera found")), patience);
        window.firstPage().doctorButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(window.firstPage().findings().contains(QStringLiteral("lsusb")),
                                 patience);
        capture(window, "first-page");
        first.tell("plug");
        second.tell("plug");
    }

    void noCameraAtAll()
    {
        const Look look(Theme::Light);
        Bench bench([]() -> std::shared_ptr<zrn::Driver> {
            throw std::runtime_error(
                "The driver plugin was not found; name it with --plugin or in the "
                "environment variable ZRNCAM_PLUGIN.");
        });
        MainWindow window(bench, WindowOptions());
        window.resize(1200, 700);
        window.show();
        bench.start();
        QTRY_COMPARE_WITH_TIMEOUT(bench.state(), Bench::State::Failed, patience);
        capture(window, "no-driver");
    }
};

QTEST_MAIN(LookTest)
#include "look_test.moc"
