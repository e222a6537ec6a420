// What is seen of a picture, and what its controls do with what is typed.

#include "scripted_window.h"
#include "zrnview/model/picture.h"
#include "zrnview/widgets/histogram_view.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/running_plot.h"
#include "zrnview/widgets/stream_panel.h"

#include <QApplication>
#include <QScreen>
#include <QSettings>
#include <QToolButton>

using namespace zrnview;

namespace
{

void activate(TestWindow& test)
{
    QApplication::setActiveWindow(&test.window); // no window manager does it
    QTRY_VERIFY_WITH_TIMEOUT(test.window.isActiveWindow(), patience);
}

QImage grabbed(QWidget& widget)
{
    return widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

bool shows(QWidget& widget, const QColor& colour)
{
    const QImage picture = grabbed(widget);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (picture.pixel(x, y) == colour.rgb()) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

class PictureTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void aPictureWithTheFocusIsAsBrightAsWithout()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        activate(test);
        ImageView& view = test.panel().frames().panes().view(0);
        test.panel().streamButton().setFocus();
        const QImage without = grabbed(view);
        view.setFocus();
        QVERIFY(view.hasFocus());
        const QImage with = grabbed(view);
        const QRect inner = without.rect().adjusted(4, 4, -4, -4);
        QCOMPARE(with.copy(inner), without.copy(inner));
        QVERIFY(with != without); // the frame
    }

    void theZoomIsToldWhenTheViewChangesItsSize()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        PaneArea& panes = test.panel().frames().panes();
        const QString before = panes.zoomText();
        test.window.resize(2000, 1300);
        QTRY_VERIFY_WITH_TIMEOUT(panes.zoomText() != before, patience);
        const auto shown = [&panes] {
            return QStringLiteral("%1 %").arg(panes.view(0).transform().scale() * 100, 0, 'f', 0);
        };
        QTRY_COMPARE_WITH_TIMEOUT(panes.zoomText(), shown(), patience);
    }

    void returnGoesBackToThePicture()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        activate(test);
        ImageView& view = test.panel().frames().panes().view(0);
        type(test.row(Setting::Gain).field(), 21);
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::Gain).readBack(), QStringLiteral("= 21"),
                                  patience);
        QVERIFY(view.hasFocus());
        test.window.side().setCurrentIndex(1);
        NumberField& timeout = test.window.side().stream()->timeoutField();
        QTRY_VERIFY_WITH_TIMEOUT(timeout.isEnabled(), patience);
        type(timeout, 400);
        QVERIFY(view.hasFocus());
    }

    void escapeCancelsAnEdit()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        activate(test);
        ControlRow& row = test.row(Setting::Gain);
        QTRY_COMPARE_WITH_TIMEOUT(row.readBack(), QStringLiteral("= 16"), patience);
        row.field().setFocus();
        row.field().selectAll();
        QTest::keyClicks(&row.field(), QStringLiteral("33"));
        QTest::keyClick(&row.field(), Qt::Key_Escape);
        QCOMPARE(row.field().text(), QStringLiteral("16"));
        QVERIFY(test.panel().frames().panes().view(0).hasFocus());
        // What is asked for later has reached the camera, and what was cancelled has not.
        type(test.row(Setting::Exposure).field(), 2300);
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::Exposure).field().value(), 2300, patience);
        const std::lock_guard lock(devices[0]->mutex);
        QCOMPARE(static_cast<int>(devices[0]->gain), 16);
    }

    void numbersOutsideOfTheRangeAreLimitedAndTold_data()
    {
        QTest::addColumn<int>("setting");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("taken");
        const auto add = [](const char* name, Setting setting, const char* typed, int taken) {
            QTest::newRow(name) << static_cast<int>(setting) << QString::fromLatin1(typed) << taken;
        };
        add("gain", Setting::Gain, "300", 64);
        add("long exposure", Setting::Exposure, "9999999", 500000);
        add("short exposure", Setting::Exposure, "7", 100);
        add("more than an integer", Setting::Exposure, "123456789012", 500000);
        add("negative", Setting::Gain, "-5", 0);
    }

    void numbersOutsideOfTheRangeAreLimitedAndTold()
    {
        QFETCH(int, setting);
        QFETCH(QString, typed);
        QFETCH(int, taken);
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        ControlRow& row = test.row(static_cast<Setting>(setting));
        QTRY_VERIFY_WITH_TIMEOUT(row.readBack().startsWith(QLatin1Char('=')), patience);
        taken = std::max(taken, row.field().minimum());
        row.field().setFocus();
        row.field().selectAll();
        QTest::keyClicks(&row.field(), typed);
        QTest::keyClick(&row.field(), Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(row.readBack(), QStringLiteral("= ") + QLocale().toString(taken),
                                  patience);
        const QString told = QLocale().toString(typed.toDouble(), 'f', 0);
        QVERIFY2(row.message().contains(told) &&
                     row.message().contains(QLocale().toString(taken) + QStringLiteral(" was")),
                 qPrintable(row.message()));
        // The next input has a message of its own, or none.
        row.field().setFocus();
        row.field().selectAll();
        QTest::keyClicks(&row.field(), QStringLiteral("2"));
        QVERIFY(row.message().isEmpty());
    }

    void whatIsNoNumberIsRefusedAndTold()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        ControlRow& row = test.row(Setting::Exposure);
        QTRY_COMPARE_WITH_TIMEOUT(row.field().value(), 1000, patience);
        for (const char* typed : {"1.5", "2e3", "many"}) {
            row.field().setFocus();
            row.field().selectAll();
            QTest::keyClicks(&row.field(), QLatin1String(typed));
            QTest::keyClick(&row.field(), Qt::Key_Return);
            QCOMPARE(row.field().value(), 1000);
            QVERIFY2(row.message().contains(QLatin1String(typed)), qPrintable(row.message()));
        }
    }

    void aCacheOutsideOfTheRangeIsLimitedAndTold()
    {
        TestWindow test(makeDevices(1), false);
        QVERIFY(test.waitForState(CameraState::Idle));
        StreamPanel& stream = *test.window.side().stream();
        test.window.side().setCurrentIndex(1);
        QTRY_COMPARE_WITH_TIMEOUT(stream.cacheField().value(), 16, patience);
        type(stream.cacheField(), 4000);
        QTRY_COMPARE_WITH_TIMEOUT(
            static_cast<int>(test.panel().device().reading(Setting::CacheFrames)->value), 1024,
            patience);
        QTRY_VERIFY_WITH_TIMEOUT(stream.message().contains(QLocale().toString(4000)), patience);
    }

    void everyRefreshOfTheScreenShowsTheNewestFrame()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        const double refresh = 1000 / test.window.screen()->refreshRate();
        const auto period = static_cast<double>(test.panel().frames().refreshPeriod().count());
        QVERIFY2(period <= refresh && period > refresh / 2, qPrintable(QString::number(period)));
    }

    void histogramsAreThoseOfTheFrameThatIsShown()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        FramePanel& frames = test.panel().frames();
        const auto areThose = [&frames] {
            const zrnview::Display& shown = *frames.display();
            return frames.histogram('A').histogram().counts ==
                       histogramOf(shown.a, shown.a.rect()).counts &&
                   frames.histogram('B').histogram().counts ==
                       histogramOf(shown.b, shown.b.rect()).counts;
        };
        QTRY_VERIFY_WITH_TIMEOUT(areThose(), patience);
    }

    void thePlotOfLatenciesNamesItsLines()
    {
        RunningPlot plot(QStringLiteral("Latency"), RunningPlot::Style::Line);
        plot.resize(plot.sizeHint());
        const Colours colours = coloursFor(plot.palette());
        const QImage bare = grabbed(plot);
        plot.setLegend(QStringLiteral("████"), QStringLiteral("████"));
        QVERIFY(grabbed(plot) != bare);
        QVERIFY(shows(plot, colours.imageA));
        QVERIFY(shows(plot, colours.imageB));
    }
};

QTEST_MAIN(PictureTest)
#include "picture_test.moc"
