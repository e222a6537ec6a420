#include "client/property_table.h"
#include "client/recording.h"
#include "clipping.h"
#include "scripted_window.h"
#include "zrnview/orderly_end.h"
#include "zrnview/widgets/camera_list.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/controls_panel.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/histogram_view.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/main_window.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/property_table.h"
#include "zrnview/widgets/running_plot.h"
#include "zrnview/widgets/side_panel.h"
#include "zrnview/widgets/stream_panel.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSlider>
#include <QTabBar>
#include <QTableView>
#include <QToolButton>
#include <QWheelEvent>
#include <QtTest>

#include <cmath>

using namespace zrnview;

namespace
{

/// Presses a button of the message box that is open.
void answerQuestion(QMessageBox::StandardButton button)
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    QVERIFY(box);
    QTest::mouseClick(box->button(button), Qt::LeftButton);
}

/// Whether a pixel of the widget has the colour.
bool shows(QWidget& widget, const QColor& colour)
{
    const QImage picture = widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (picture.pixel(x, y) == colour.rgb()) {
                return true;
            }
        }
    }
    return false;
}

/// What somebody can operate in the window as it is now; of radio buttons the chosen one, as the
/// arrow keys choose the others.
QList<QWidget*> controlsOf(const QWidget& window)
{
    QList<QWidget*> controls;
    for (QWidget* widget : window.findChildren<QWidget*>()) {
        const auto* radio = qobject_cast<QRadioButton*>(widget);
        const bool operable =
            qobject_cast<QAbstractButton*>(widget) || qobject_cast<QAbstractSpinBox*>(widget) ||
            qobject_cast<QSlider*>(widget) || qobject_cast<QComboBox*>(widget) ||
            qobject_cast<QListWidget*>(widget) || qobject_cast<QTableView*>(widget) ||
            qobject_cast<ImageView*>(widget) || qobject_cast<HistogramView*>(widget);
        // Qt's own small parts, such as what undocks the side panel, have names of their own.
        const bool isPart = widget->objectName().startsWith(QLatin1String("qt_")) ||
                            qobject_cast<QTabBar*>(widget->parentWidget());
        if (operable && !isPart && widget->isVisible() && widget->isEnabled() &&
            !(radio && !radio->isChecked())) {
            controls += widget;
        }
    }
    return controls;
}

/// The widgets that have the focus, one after the other, when Tab is pressed again and again.
QSet<QWidget*> reachedWithTab(QWidget& start)
{
    constexpr int most = 300;
    QSet<QWidget*> reached;
    start.setFocus();
    for (int i = 0; i < most && QApplication::focusWidget(); ++i) {
        reached.insert(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    return reached;
}

double luminance(const QColor& colour)
{
    const auto linear = [](double part) {
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

double contrast(const QColor& one, const QColor& other)
{
    const double a = luminance(one) + 0.05;
    const double b = luminance(other) + 0.05;
    return std::max(a, b) / std::min(a, b);
}

} // namespace

class WindowTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void everyImageSettingReachesTheCamera_data()
    {
        QTest::addColumn<int>("setting");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("readBack");
        const auto add = [](const char* name, Setting setting, int value, int readBack) {
            QTest::newRow(name) << static_cast<int>(setting) << value << readBack;
        };
        add("exposure", Setting::Exposure, 12345, 12300);
        add("gain", Setting::Gain, 33, 33);
        add("R", Setting::RGain, 201, 201);
        add("GR", Setting::GrGain, 202, 202);
        add("GB", Setting::GbGain, 203, 203);
        add("B", Setting::BGain, 204, 204);
        add("gamma", Setting::Gamma, 300, 300);
        add("sharpness", Setting::Sharpness, 9, 9);
        add("hue", Setting::Hue, -7, -7);
    }

    void everyImageSettingReachesTheCamera()
    {
        QFETCH(int, setting);
        QFETCH(int, value);
        QFETCH(int, readBack);
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        ControlRow& row = test.row(static_cast<Setting>(setting));
        QTRY_VERIFY_WITH_TIMEOUT(row.readBack().startsWith(QLatin1Char('=')), patience);
        type(row.field(), value);
        const QString expected = (value == readBack ? QStringLiteral("= ") : QStringLiteral("≠ ")) +
                                 QLocale().toString(readBack);
        QTRY_COMPARE_WITH_TIMEOUT(row.readBack(), expected, patience);
        QCOMPARE(row.field().value(), readBack);
        QVERIFY(row.message().isEmpty());
    }

    void slidersReachTheCameraToo()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        for (const Setting setting : {Setting::Exposure, Setting::Gain, Setting::BGain}) {
            ControlRow& row = test.row(setting);
            QTRY_VERIFY_WITH_TIMEOUT(row.readBack().startsWith(QLatin1Char('=')), patience);
            const QString before = row.readBack();
            row.slider().setFocus();
            QTest::keyClick(&row.slider(), Qt::Key_PageUp);
            QTRY_VERIFY_WITH_TIMEOUT(row.readBack() != before, patience);
        }
    }

    void theRangesAreThoseOfTheCamera()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QCOMPARE(test.row(Setting::Exposure).field().minimum(), 100);
        QCOMPARE(test.row(Setting::Exposure).field().maximum(), 500000);
        QCOMPARE(test.row(Setting::Gain).field().maximum(), 64);
    }

    void aRefusedValueIsExplained()
    {
        const Devices devices = makeDevices(1);
        devices[0]->exposureAnswer = ErrorCode::ExposureReadFailed;
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        ControlRow& row = test.row(Setting::Exposure);
        type(row.field(), 7000);
        QTRY_VERIFY_WITH_TIMEOUT(row.message().contains(QStringLiteral("1038")), patience);
        QVERIFY(row.message().contains(QLocale().toString(7000)));
        QCOMPARE(row.field().value(), 1000);
        const EventLog& events = test.window.events();
        QVERIFY(events.item(events.count() - 1)->text().contains(QStringLiteral("1038")));
        devices[0]->exposureAnswer = ErrorCode::Success;
        type(row.field(), 7000);
        QTRY_VERIFY_WITH_TIMEOUT(row.message().isEmpty(), patience);
    }

    void theSharingOfTheCarriersIsShown()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CarrierView& view = test.window.side().controls()->carrierView();
        QVERIFY(view.sentence().isEmpty());
        type(test.row(Setting::RGain).field(), 44);
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::Gamma).readBack(), QStringLiteral("= 44"),
                                  patience);
        QVERIFY2(view.sentence().contains(QStringLiteral("R gain also changes Gamma; rewrites")),
                 qPrintable(view.sentence()));
        view.preview(Setting::Exposure);
        QTRY_VERIFY_WITH_TIMEOUT(view.sentence().isEmpty(), patience);
        view.preview(Setting::Hue);
        QCOMPARE(view.sentence(), QStringLiteral("Hue also changes GB gain"));
    }

    void theResetAsksFirst()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        QPushButton& reset = test.window.side().controls()->resetButton();
        QTest::mouseClick(&reset, Qt::LeftButton);
        answerQuestion(QMessageBox::Cancel);
        QTest::qWait(100);
        QCOMPARE(devices[0]->resets.load(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(!QApplication::activeModalWidget(), patience);
        QTest::mouseClick(&reset, Qt::LeftButton);
        answerQuestion(QMessageBox::Reset);
        QTRY_COMPARE_WITH_TIMEOUT(devices[0]->resets.load(), 1, patience);
    }

    void orderCacheAndTimeoutReachTheDriver()
    {
        TestWindow test(makeDevices(1), false);
        QVERIFY(test.waitForState(CameraState::Idle));
        StreamPanel& stream = *test.window.side().stream();
        test.window.side().setCurrentIndex(1);
        CameraDevice& device = test.panel().device();
        const auto value = [&device](Setting setting) {
            const SettingReading* reading = device.reading(setting);
            return reading && reading->readCode == ErrorCode::Success
                       ? static_cast<int>(reading->value)
                       : -1;
        };
        QTRY_COMPARE_WITH_TIMEOUT(stream.cacheField().value(), 16, patience);
        stream.newestButton().click();
        QTRY_COMPARE_WITH_TIMEOUT(value(Setting::TriggerOrder), 0, patience);
        stream.oldestButton().click();
        QTRY_COMPARE_WITH_TIMEOUT(value(Setting::TriggerOrder), 2, patience);
        type(stream.cacheField(), 24);
        QTRY_COMPARE_WITH_TIMEOUT(value(Setting::CacheFrames), 24, patience);
        type(stream.timeoutField(), 333);
        QTRY_COMPARE_WITH_TIMEOUT(value(Setting::GrabTimeout), 333, patience);
        for (const Setting setting : {Setting::ExposureCheck, Setting::GainCheck}) {
            stream.checkBox(setting).click();
            QTRY_COMPARE_WITH_TIMEOUT(value(setting), 0, patience);
        }
        test.panel().toggleStream();
        QTRY_VERIFY_WITH_TIMEOUT(!stream.cacheField().isEnabled(), patience);
        device.set(Setting::CacheFrames, 30);
        QTRY_VERIFY_WITH_TIMEOUT(stream.message().contains(QStringLiteral("779")), patience);
    }

    void thePropertiesAreLiveAndEditable()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.side().setCurrentIndex(2);
        QAbstractItemModel& model = *test.window.side().properties()->model();
        const auto cell = [&model](const char* key, int column) {
            for (int row = 0; row < model.rowCount(); ++row) {
                if (model.index(row, PropertyModel::Key).data().toString() == QLatin1String(key)) {
                    return model.index(row, column);
                }
            }
            return QModelIndex();
        };
        QTRY_COMPARE_WITH_TIMEOUT(cell("Gamma", PropertyModel::Value).data().toString(),
                                  QStringLiteral("100"), patience);
        {
            const std::lock_guard lock(devices[0]->mutex);
            devices[0]->gamma = 101;
        }
        QTRY_COMPARE_WITH_TIMEOUT(cell("Gamma", PropertyModel::Value).data().toString(),
                                  QStringLiteral("101"), patience);
        QVERIFY(
            model.setData(cell("Sharp", PropertyModel::Value), QStringLiteral("12"), Qt::EditRole));
        QTRY_COMPARE_WITH_TIMEOUT(cell("Sharp", PropertyModel::Value).data().toString(),
                                  QStringLiteral("12"), patience);
        QVERIFY(!model.setData(cell("Sharp", PropertyModel::Value), QStringLiteral("much"),
                               Qt::EditRole));
        QVERIFY(!(cell("Serial", PropertyModel::Value).flags() & Qt::ItemIsEditable));
        QCOMPARE(static_cast<std::size_t>(model.rowCount()), zrn::propertyTable.size());
        QVERIFY(cell("CacheFrameCount", PropertyModel::Answer)
                    .data()
                    .toString()
                    .contains(QStringLiteral("779")));
    }

    void imagesAreShownInEveryMode()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        PaneArea& panes = test.panel().frames().panes();
        QVERIFY(panes.view(0).isVisible());
        QVERIFY(panes.view(1).isVisible());
        for (const ViewMode mode : {ViewMode::A, ViewMode::B, ViewMode::Blink}) {
            panes.setMode(mode);
            QVERIFY(!panes.view(1).isVisible());
        }
        QVERIFY(test.panel().frames().display()->difference.isNull());
        panes.setMode(ViewMode::Difference);
        panes.setAmplification(2);
        QTRY_VERIFY_WITH_TIMEOUT(!test.panel().frames().display()->difference.isNull(), patience);
        const zrnview::Display& display = *test.panel().frames().display();
        const int a = display.a.constScanLine(5)[7];
        const int b = display.b.constScanLine(5)[7];
        const int shown = display.difference.constScanLine(5)[7];
        QVERIFY(shown == std::min(std::abs(a - b) * 2, 255) ||
                shown == std::min(std::abs(a - b) * 4, 255));
    }

    void blinkingShowsBothImagesInTurn()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        PaneArea& panes = test.panel().frames().panes();
        panes.setMode(ViewMode::Blink);
        for (const char* name : {"Image B", "Image A", "Image B"}) {
            QTRY_COMPARE_WITH_TIMEOUT(panes.view(0).accessibleName(), QLatin1String(name),
                                      patience);
        }
    }

    void clippedPixelsAreMarked()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        FramePanel& frames = test.panel().frames();
        ImageView& view = frames.panes().view(0);
        view.zoomToOne();
        const Colours colours = coloursFor(view.palette());
        QVERIFY(!shows(view, colours.bright));
        QVERIFY(!shows(view, colours.dark));
        frames.panes().setMarkClipped(true);
        // Not every picture of the camera has pixels at both ends.
        QTRY_VERIFY_WITH_TIMEOUT(shows(view, colours.bright) && shows(view, colours.dark),
                                 patience);
        QTRY_VERIFY_WITH_TIMEOUT(shows(frames.histogram('A'), colours.bright) &&
                                     shows(frames.histogram('A'), colours.dark),
                                 patience);
    }

    void zoomAndPanAreLinkedAndReachableByKeyboard()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        ImageView& left = test.panel().frames().panes().view(0);
        ImageView& right = test.panel().frames().panes().view(1);
        left.setFocus();
        QTest::keyClick(&left, Qt::Key_1);
        QCOMPARE(left.transform().scale(), 1.0);
        for (int i = 0; i < 8; ++i) {
            QTest::keyClick(&left, Qt::Key_Plus);
        }
        QCOMPARE(right.transform().scale(), left.transform().scale());
        const QPointF before = left.transform().target().topLeft();
        QTest::keyClick(&left, Qt::Key_Right);
        QVERIFY(left.transform().target().topLeft().x() < before.x());
        QCOMPARE(right.transform().target().topLeft(), left.transform().target().topLeft());
        QTest::keyClick(&right, Qt::Key_F);
        QVERIFY(left.transform().isFitted());
    }

    void zoomAndPanFollowTheMouse()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        ImageView& left = test.panel().frames().panes().view(0);
        ImageView& right = test.panel().frames().panes().view(1);
        // The pixel's values are shown from now on, beside which the views are smaller.
        const QPoint centre = left.rect().center();
        QMouseEvent hover(QEvent::MouseMove, centre, centre, Qt::NoButton, Qt::NoButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&left, &hover);
        QCoreApplication::sendPostedEvents();
        const QPointF at = left.rect().center();
        const QPointF pointedAt = left.transform().toImage(at * left.devicePixelRatioF());
        const double fitted = left.transform().scale();
        constexpr int notch = 120;
        QWheelEvent wheel(at, left.mapToGlobal(at.toPoint()), {}, {0, 4 * notch}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&left, &wheel);
        QVERIFY(left.transform().scale() > 2 * fitted);
        QCOMPARE(right.transform().scale(), left.transform().scale());
        const QPointF stays = left.transform().toImage(at * left.devicePixelRatioF());
        QVERIFY((stays - pointedAt).manhattanLength() < 0.01);

        const QPointF before = left.transform().target().topLeft();
        for (const auto& [type, position] :
             {std::pair(QEvent::MouseButtonPress, at),
              std::pair(QEvent::MouseMove, at - QPointF(9, 7)),
              std::pair(QEvent::MouseButtonRelease, at - QPointF(9, 7))}) {
            QMouseEvent event(type, position, position, Qt::LeftButton, Qt::LeftButton,
                              Qt::NoModifier);
            QApplication::sendEvent(&left, &event);
        }
        const QPointF moved = left.transform().target().topLeft() - before;
        QCOMPARE(moved, QPointF(-9, -7) * left.devicePixelRatioF());
        // Of an odd width one pane has a pixel more, on both sides of the middle.
        const QPointF apart =
            right.transform().target().topLeft() - left.transform().target().topLeft();
        QVERIFY(apart.manhattanLength() < 1);

        QTest::mouseDClick(&left, Qt::LeftButton);
        QVERIFY(left.transform().isFitted());
        QTest::mouseDClick(&left, Qt::LeftButton);
        QCOMPARE(left.transform().scale(), 1.0);
    }

    void pixelValuesAreThoseOfTheCamera()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        ImageView& view = test.panel().frames().panes().view(0);
        int hovered = 0;
        connect(&view, &ImageView::hovered, this, [&hovered] { ++hovered; });
        const QPointF at = view.transform().toView(QPointF(10.5, 20.5)) / view.devicePixelRatioF();
        QMouseEvent move(QEvent::MouseMove, at, at, Qt::NoButton, Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(&view, &move);
        QCOMPARE(hovered, 1);
        const Frame& frame = test.panel().frames().display()->source.frame;
        const auto a = frame.images()[0].bytes[20 * frame.width + 10];
        const auto labels = test.panel().frames().panes().findChildren<QLabel*>();
        QVERIFY(std::any_of(labels.begin(), labels.end(), [a](const QLabel* label) {
            return label->text().contains(QStringLiteral("x&nbsp;<b>10</b>")) &&
                   label->text().contains(QStringLiteral("A&nbsp;<b>%1</b>").arg(a));
        }));
    }

    void plotsAndHistogramsFollowTheStream()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        FramePanel& frames = test.panel().frames();
        QTRY_VERIFY_WITH_TIMEOUT(frames.numberPlot().series(0).points().size() > 5, patience);
        QTRY_VERIFY_WITH_TIMEOUT(frames.ratePlot().series(0).newest().value > 5, patience);
        QTRY_VERIFY_WITH_TIMEOUT(!frames.latencyPlot().series(1).isEmpty(), patience);
        QTRY_COMPARE_WITH_TIMEOUT(frames.missingPlot().headline(), QStringLiteral("0"), patience);
        QTRY_COMPARE_WITH_TIMEOUT(frames.histogram('A').histogram().pixels, quint64{64 * 48},
                                  patience);
        devices[0]->skipNext = 3;
        QTRY_COMPARE_WITH_TIMEOUT(frames.missingPlot().headline(), QStringLiteral("3"), patience);
    }

    void severalCamerasStandSideBySide()
    {
        TestWindow test(makeDevices(3));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QCOMPARE(test.window.panels().size(), std::size_t{3});
        test.window.activate(test.panel(1));
        QCOMPARE(test.window.activePanel(), &test.panel(1));
        type(test.row(Setting::Gain).field(), 5);
        QTRY_COMPARE_WITH_TIMEOUT(test.row(Setting::Gain).readBack(), QStringLiteral("= 5"),
                                  patience);
        QCOMPARE(static_cast<int>(test.panel(0).device().reading(Setting::Gain)->value), 16);
        QListWidget& list = test.window.cameraList().list();
        list.item(1)->setCheckState(Qt::Unchecked);
        QTRY_COMPARE_WITH_TIMEOUT(test.window.panels().size(), std::size_t{2}, patience);
        list.item(1)->setCheckState(Qt::Checked);
        QTRY_COMPARE_WITH_TIMEOUT(test.window.panels().size(), std::size_t{3}, patience);
    }

    void unplugIsShownAtOnceAndReplugResumes()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        devices[0]->unplug();
        QTRY_VERIFY_WITH_TIMEOUT(test.panel().notice().isVisible(), patience);
        QVERIFY(test.panel().notice().remedy().contains(QStringLiteral("Plug it in again")));
        QVERIFY(!test.row(Setting::Gain).field().isEnabled());
        devices[0]->replug();
        QVERIFY(test.waitForState(CameraState::Streaming));
        QTRY_VERIFY_WITH_TIMEOUT(!test.panel().notice().isVisible(), patience);
        QVERIFY(test.row(Setting::Gain).field().isEnabled());
    }

    void silenceIsExplained()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        devices[0]->silent = true;
        QTRY_VERIFY_WITH_TIMEOUT(
            test.panel().notice().what().startsWith(QStringLiteral("No frame")), patience);
        QVERIFY(test.panel().notice().remedy().contains(QStringLiteral("control requests")));
        devices[0]->silent = false;
        QTRY_VERIFY_WITH_TIMEOUT(!test.panel().notice().isVisible(), patience);
    }

    void theWindowGoesOnWhileACameraHangs()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        devices[0]->hanging = true;
        type(test.row(Setting::Gain).field(), 20);
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&ticks] { ++ticks; });
        timer.start(10);
        QTRY_VERIFY_WITH_TIMEOUT(
            test.panel().notice().what().contains(QStringLiteral("not answered")), patience);
        // The camera hung for seconds; a window that waited for it would have stood still.
        QVERIFY2(ticks > 20, qPrintable(QString::number(ticks)));
        ImageView& view = test.panel().frames().panes().view(0);
        QTest::keyClick(&view, Qt::Key_1);
        QCOMPARE(view.transform().scale(), 1.0);
        test.window.side().setCurrentIndex(1);
        QVERIFY(test.window.side().stream()->isVisible());
        QVERIFY(devices[0]->hanging);
        devices[0]->hanging = false;
        QTRY_VERIFY_WITH_TIMEOUT(!test.panel().notice().isVisible(), patience);
    }

    void snapshotsHoldImagesAndFacts()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().snapshotButton().click();
        const auto files = [&] {
            return QDir(test.folder())
                .entryInfoList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
        };
        QTRY_COMPARE_WITH_TIMEOUT(files().size(), 2, patience);
        for (const QFileInfo& file : files()) {
            const QImage image(file.filePath());
            const char letter = image.text(QStringLiteral("Image")).at(0).toLatin1();
            const quint32 number = image.text(QStringLiteral("Frame number")).toUInt();
            const QByteArray expected = scriptedImage(*devices[0], number, letter);
            QCOMPARE(image.text(QStringLiteral("Serial")), QStringLiteral("ZR1"));
            QCOMPARE(image.text(QStringLiteral("Exposure")), QStringLiteral("1000"));
            for (int y = 0; y < image.height(); ++y) {
                QCOMPARE(QByteArray(reinterpret_cast<const char*>(image.constScanLine(y)), 64),
                         expected.mid(y * 64, 64));
            }
        }
    }

    void tabReachesEveryControl()
    {
        TestWindow test(makeDevices(1), false);
        QVERIFY(test.waitForState(CameraState::Idle));
        test.panel().frames().panes().setMode(ViewMode::Difference);
        QApplication::setActiveWindow(&test.window);
        QTRY_VERIFY_WITH_TIMEOUT(test.window.isActiveWindow(), patience);
        for (int tab = 0; tab < test.window.side().count(); ++tab) {
            test.window.side().setCurrentIndex(tab);
            QCoreApplication::processEvents();
            const QSet<QWidget*> reached = reachedWithTab(test.panel().streamButton());
            for (const QWidget* control : controlsOf(test.window)) {
                QVERIFY2(reached.contains(const_cast<QWidget*>(control)),
                         qPrintable(QStringLiteral("%1 '%2' %3 on tab %4")
                                        .arg(QLatin1String(control->metaObject()->className()),
                                             control->property("text").toString(),
                                             control->accessibleName())
                                        .arg(tab)));
            }
        }
        HistogramView& histogram = test.panel().frames().histogram('A');
        QTest::keyClick(&histogram, Qt::Key_Space);
        QVERIFY(histogram.isLogarithmic());
    }

    void shortcutsWork()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QApplication::setActiveWindow(&test.window); // no window manager does it
        QTRY_VERIFY_WITH_TIMEOUT(test.window.isActiveWindow(), patience);
        QTest::keyClick(&test.window, Qt::Key_4, Qt::ControlModifier);
        QCOMPARE(test.panel().frames().panes().mode(), ViewMode::Difference);
        QTest::keyClick(&test.window, Qt::Key_Space, Qt::ControlModifier);
        QVERIFY(test.waitForState(CameraState::Idle));
        QTest::keyClick(&test.window, Qt::Key_Space, Qt::ControlModifier);
        QVERIFY(test.waitForState(CameraState::Streaming));
    }

    void coloursReadOnBothBackgrounds_data()
    {
        QTest::addColumn<int>("theme");
        QTest::newRow("light") << static_cast<int>(Theme::Light);
        QTest::newRow("dark") << static_cast<int>(Theme::Dark);
    }

    void coloursReadOnBothBackgrounds()
    {
        QFETCH(int, theme);
        applyTheme(static_cast<Theme>(theme));
        const QPalette palette = QApplication::palette();
        const Colours colours = coloursFor(palette);
        constexpr double readable = 4.5; // what accessibility guidelines ask of text
        for (const QPalette::ColorRole background : {QPalette::Window, QPalette::Base}) {
            for (const QColor& colour :
                 {colours.imageA, colours.imageB, colours.good, colours.attention, colours.fault,
                  colours.dimText, palette.color(QPalette::WindowText)}) {
                const double ratio = contrast(colour, palette.color(background));
                QVERIFY2(ratio >= readable,
                         qPrintable(QStringLiteral("%1 on %2: %3")
                                        .arg(colour.name(), palette.color(background).name())
                                        .arg(ratio)));
            }
        }
        applyTheme(Theme::System);
    }

    void textOfTwiceTheSizeFitsTheScreen()
    {
        const QFont before = QApplication::font();
        QFont large = before;
        large.setPointSizeF(before.pointSizeF() * 2);
        QApplication::setFont(large);
        {
            TestWindow test(makeDevices(1));
            QVERIFY(test.waitForState(CameraState::Streaming));
            test.window.resize(1920, 1080);
            const QSize needed = test.window.minimumSizeHint();
            QVERIFY2(
                needed.width() <= 1920 && needed.height() <= 1080,
                qPrintable(QStringLiteral("%1 x %2").arg(needed.width()).arg(needed.height())));
            for (int tab = 0; tab < test.window.side().count(); ++tab) {
                test.window.side().setCurrentIndex(tab);
                QTest::qWait(100);
                const QStringList clipped = clippedTexts(test.window);
                QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QLatin1Char('\n'))));
            }
        }
        QApplication::setFont(before);
    }
};

QTEST_MAIN(WindowTest)
#include "window_test.moc"
