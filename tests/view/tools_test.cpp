// Colours of a picture, and what is measured in it.

#include "scripted_window.h"
#include "zrnview/model/histogram.h"
#include "zrnview/model/picture.h"
#include "zrnview/widgets/event_log.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/pane_area.h"

#include <QApplication>
#include <QMenu>
#include <QSettings>

#include <algorithm>
#include <cmath>

using namespace zrnview;

namespace
{

/// Below the caption, which has a colour of its own.
bool hasColours(ImageView& view)
{
    const QImage picture = view.grab().toImage().convertToFormat(QImage::Format_RGB32);
    constexpr int frame = 4;
    QRect part = picture.rect() & view.transform().target().toRect();
    part.adjust(frame, part.height() / 2, -frame, -frame);
    for (int y = part.top(); y <= part.bottom(); ++y) {
        for (int x = part.left(); x <= part.right(); ++x) {
            if (!qIsGray(picture.pixel(x, y))) {
                return true;
            }
        }
    }
    return false;
}

/// Chooses what the user sees in a menu.
void choose(QMenu& menu, const QString& text)
{
    for (QAction* action : menu.actions()) {
        if (action->text() == text) {
            QVERIFY(action->isEnabled() && action->isVisible());
            action->trigger();
            return;
        }
    }
    QFAIL(qPrintable(text));
}

void send(QWidget& widget, QEvent::Type type, QPointF at, Qt::MouseButton button)
{
    QMouseEvent event(type, at, at, button, button, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}

void drag(ImageView& view, QPoint from, QPoint to)
{
    const auto place = [&view](QPoint pixel) {
        return view.transform().toView(QPointF(pixel) + QPointF(0.5, 0.5)) /
               view.devicePixelRatioF();
    };
    send(view, QEvent::MouseButtonPress, place(from), Qt::LeftButton);
    send(view, QEvent::MouseMove, place(to), Qt::LeftButton);
    send(view, QEvent::MouseButtonRelease, place(to), Qt::LeftButton);
}

/// A window whose camera has sent its last picture.
class StillWindow : public TestWindow
{
public:
    explicit StillWindow(const Devices& devices = makeDevices(1))
        : TestWindow(devices)
    {
    }

    bool waitForStill()
    {
        if (!waitForState(CameraState::Streaming) || !waitForImage()) {
            return false;
        }
        for (CameraPanel* panel : window.panels()) {
            panel->device().stopStream();
        }
        return waitForState(CameraState::Idle);
    }
    PaneArea& panes() { return panel().frames().panes(); }
    const zrnview::Display& display() { return *panel().frames().display(); }
    bool isTold(const QString& text)
    {
        const EventLog& events = window.events();
        for (int i = 0; i < events.count(); ++i) {
            if (events.item(i)->text().contains(text)) {
                return true;
            }
        }
        return false;
    }
};

} // namespace

class ToolsTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void thePatternGivesColoursAndIsRemembered()
    {
        {
            StillWindow test;
            QVERIFY(test.waitForStill());
            ImageView& view = test.panes().view(0);
            QVERIFY(!hasColours(view));
            choose(test.panes().colourMenu(), QStringLiteral("GBRG"));
            QVERIFY(hasColours(view));
        }
        StillWindow test(makeDevices(2));
        QVERIFY(test.waitForStill());
        for (std::size_t i = 0; i < 2; ++i) {
            PaneArea& panes = test.panel(i).frames().panes();
            QCOMPARE(panes.pattern(), test.panel(i).device().serial() == QStringLiteral("ZR1")
                                          ? BayerPattern::Gbrg
                                          : BayerPattern::None);
        }
        choose(test.panes().colourMenu(), QStringLiteral("Grey"));
        QVERIFY(!hasColours(test.panes().view(0)));
    }

    void whiteBalanceNeedsAPattern()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        QVERIFY(!test.panes().balanceAction().isEnabled());
        QVERIFY(!test.panes().lastBalanceAction().isVisible());
    }

    void whiteBalanceReachesTheCameraAndIsRemembered()
    {
        const Devices devices = makeDevices(1);
        BayerChannels<int> balanced{};
        {
            StillWindow test(devices);
            QVERIFY(test.waitForStill());
            choose(test.panes().colourMenu(), QStringLiteral("RGGB"));
            BayerChannels<double> means{};
            for (const QImage& image : {test.display().a, test.display().b}) {
                const auto some = channelMeans(image, BayerPattern::Rggb, image.rect());
                for (std::size_t i = 0; i < means.size(); ++i) {
                    means.at(i) += some.at(i) / 2;
                }
            }
            balanced = balancedGains(means, {100, 50, 20, 60}).value();
            choose(test.panes().colourMenu(), QStringLiteral("White balance"));
            for (const auto& [setting, gain] :
                 {std::pair(Setting::RGain, balanced[0]), std::pair(Setting::GrGain, balanced[1]),
                  std::pair(Setting::GbGain, balanced[2]),
                  std::pair(Setting::BGain, balanced[3])}) {
                QTRY_COMPARE_WITH_TIMEOUT(test.row(setting).readBack(),
                                          QStringLiteral("= %1").arg(gain), patience);
            }
            QVERIFY(test.isTold(QStringLiteral("white balance with R %1").arg(balanced[0])));
        }
        {
            const std::lock_guard lock(devices[0]->mutex);
            devices[0]->gamma = devices[0]->saturation = 77;
        }
        StillWindow test(devices);
        QVERIFY(test.waitForStill());
        choose(test.panes().colourMenu(), QStringLiteral("Last white balance"));
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::RGain).readBack(),
                                  QStringLiteral("= %1").arg(balanced[0]), patience);
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::BGain).readBack(),
                                  QStringLiteral("= %1").arg(balanced[3]), patience);
    }

    void whiteBalanceTellsWhyItCannotBe()
    {
        const Devices devices = makeDevices(1);
        {
            const std::lock_guard lock(devices[0]->mutex);
            devices[0]->saturation = 0;
        }
        StillWindow test(devices);
        QVERIFY(test.waitForStill());
        test.panes().setPattern(BayerPattern::Rggb);
        choose(test.panes().colourMenu(), QStringLiteral("White balance"));
        QVERIFY(test.isTold(QStringLiteral("no white balance")));
        QCOMPARE(test.row(Setting::RGain).readBack(), QStringLiteral("= 100"));
    }

    void aLineShowsItsLevels()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        MeasureView& measures = test.panes().measures();
        QVERIFY(!measures.isVisible());
        choose(test.panes().measureMenu(), QStringLiteral("Profile of a line"));
        QVERIFY(measures.isVisible());
        const Selection row = middleRowOf(test.display().a.size());
        QTRY_COMPARE_WITH_TIMEOUT(measures.plot().levels('A'), profileOf(test.display().a, row),
                                  patience);
        QCOMPARE(measures.plot().levels('B'), profileOf(test.display().b, row));
        QCoreApplication::processEvents(); // the views are smaller above the plot
        drag(test.panes().view(0), {5, 6}, {25, 16});
        QTRY_COMPARE_WITH_TIMEOUT(measures.plot().levels('A'),
                                  profileOf(test.display().a, Selection{{5, 6}, {25, 16}}),
                                  patience);
        QVERIFY2(measures.text().contains(QStringLiteral("22.4 pixels")),
                 qPrintable(measures.text()));
        choose(test.panes().measureMenu(), QStringLiteral("Nothing"));
        QVERIFY(!measures.isVisible());
    }

    void aRectangleShowsItsStatistics()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        choose(test.panes().measureMenu(), QStringLiteral("Statistics and focus of a rectangle"));
        QCoreApplication::processEvents();
        drag(test.panes().view(1), {30, 20}, {11, 9});
        const QRect region(11, 9, 20, 12);
        QCOMPARE(test.panes().selection().rectangle(), region);
        MeasureView& measures = test.panes().measures();
        const auto holds = [&](const auto& part) {
            return QTest::qWaitFor([&] { return measures.text().contains(part()); }, patience);
        };
        QVERIFY(holds([] { return QStringLiteral("20 × 12 at 11, 9"); }));
        for (const char letter : {'A', 'B'}) {
            const auto statistics = [&] {
                const QImage image = letter == 'A' ? test.display().a : test.display().b;
                const Histogram histogram = histogramOf(image, region);
                return QStringLiteral("%1: mean %2, deviation %3, %4 to %5, focus %6 (best ")
                    .arg(QLatin1Char(letter))
                    .arg(histogram.mean(), 0, 'f', 1)
                    .arg(histogram.deviation(), 0, 'f', 1)
                    .arg(histogram.minimum())
                    .arg(histogram.maximum())
                    .arg(focusMeasure(image, region), 0, 'f', 1);
            };
            QVERIFY2(holds(statistics), qPrintable(measures.text() + statistics()));
        }
        QVERIFY(!measures.text().contains(QStringLiteral("R ")));
        test.panes().setPattern(BayerPattern::Bggr);
        const auto colours = [&] {
            const BayerChannels<double> means =
                channelMeans(test.display().a, BayerPattern::Bggr, region);
            return QStringLiteral("; R %1, G %2, B %3")
                .arg(means[0], 0, 'f', 1)
                .arg((means[1] + means[2]) / 2, 0, 'f', 1)
                .arg(means[3], 0, 'f', 1);
        };
        QVERIFY2(holds(colours), qPrintable(measures.text() + colours()));
    }

    void dragsOutsideOfTheImageStayInIt()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        choose(test.panes().measureMenu(), QStringLiteral("Statistics and focus of a rectangle"));
        drag(test.panes().view(0), {-50, -50}, {1000, 1000});
        QCOMPARE(test.panes().selection().rectangle(), test.display().a.rect());
    }

    void theMiddleButtonPansWhileSomethingIsMeasured()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        choose(test.panes().measureMenu(), QStringLiteral("Profile of a line"));
        QCoreApplication::processEvents();
        ImageView& view = test.panes().view(0);
        view.zoomBy(8);
        const Selection before = test.panes().selection();
        const QPointF corner = view.transform().target().topLeft();
        const QPointF at = view.rect().center();
        send(view, QEvent::MouseButtonPress, at, Qt::MiddleButton);
        send(view, QEvent::MouseMove, at - QPointF(9, 7), Qt::MiddleButton);
        send(view, QEvent::MouseButtonRelease, at - QPointF(9, 7), Qt::MiddleButton);
        QCOMPARE(view.transform().target().topLeft() - corner,
                 QPointF(-9, -7) * view.devicePixelRatioF());
        QCOMPARE(test.panes().selection(), before);
    }

    void theCrosshairCrossesTheMiddle()
    {
        StillWindow test;
        QVERIFY(test.waitForStill());
        ImageView& view = test.panes().view(0);
        const QImage before = view.grab().toImage();
        choose(test.panes().measureMenu(), QStringLiteral("Crosshair"));
        const QImage after = view.grab().toImage();
        const QPointF middle = view.transform().toView(QRectF(test.display().a.rect()).center()) /
                               view.devicePixelRatioF();
        int onCross = 0;
        for (int y = 0; y < after.height(); ++y) {
            for (int x = 0; x < after.width(); ++x) {
                if (before.pixel(x, y) != after.pixel(x, y)) {
                    QVERIFY(std::min(std::abs(x - middle.x()), std::abs(y - middle.y())) <= 1);
                    ++onCross;
                }
            }
        }
        QVERIFY2(onCross >= after.width() + after.height() - 2,
                 qPrintable(QString::number(onCross)));
        choose(test.panes().measureMenu(), QStringLiteral("Crosshair"));
        QCOMPARE(view.grab().toImage(), before);
    }
};

QTEST_MAIN(ToolsTest)
#include "tools_test.moc"
