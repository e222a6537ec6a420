// What goes beyond the picture of the moment: what is remembered, what is told, and what is shown
// without a camera or on a small screen.

#include "client/recording.h"
#include "clipping.h"
#include "common/camera_settings.h"
#include "made_up_frames.h"
#include "recorded.h"
#include "scripted_window.h"
#include "zrnview/widgets/camera_list.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/preferences.h"
#include "zrnview/widgets/property_table.h"
#include "zrnview/widgets/running_plot.h"
#include "zrnview/widgets/time_line.h"

#include <QAction>
#include <QDockWidget>
#include <QListWidget>
#include <QLoggingCategory>
#include <QPushButton>
#include <QSettings>
#include <QSlider>
#include <QToolButton>

using namespace zrnview;

namespace
{

bool tells(const EventLog& events, const QString& text)
{
    for (int row = 0; row < events.count(); ++row) {
        if (events.item(row)->text().contains(text)) {
            return true;
        }
    }
    return false;
}

QAction* actionWith(const MainWindow& window, const QString& text)
{
    for (QAction* action : window.findChildren<QAction*>()) {
        if (action->text().remove(QLatin1Char('&')) == text) {
            return action;
        }
    }
    return nullptr;
}

int valueOf(const CameraDevice& device, Setting setting)
{
    const SettingReading* reading = device.reading(setting);
    return reading && reading->readCode == ErrorCode::Success ? static_cast<int>(reading->value)
                                                              : -1;
}

} // namespace

class SessionTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QSettings().clear(); }

    void remembersHowEachCameraWasLookedAt()
    {
        {
            TestWindow test(makeDevices(2));
            QVERIFY(test.waitForState(CameraState::Streaming));
            PaneArea& panes = test.panel(1).frames().panes();
            panes.setMode(ViewMode::Difference);
            panes.setAmplification(8);
            panes.setMarkClipped(true);
        }
        TestWindow test(makeDevices(2));
        QVERIFY(test.waitForState(CameraState::Streaming));
        const PaneArea& panes = test.panel(1).frames().panes();
        QCOMPARE(test.panel(1).device().serial(), QStringLiteral("ZR2"));
        QCOMPARE(panes.mode(), ViewMode::Difference);
        QCOMPARE(panes.amplification(), 8);
        QVERIFY(panes.marksClipped());
        const PaneArea& other = test.panel(0).frames().panes();
        QCOMPARE(other.mode(), ViewMode::SideBySide);
        QVERIFY(!other.marksClipped());
    }

    void setsAgainWhatTheDriverForgets()
    {
        const auto choices = {
            std::pair(Setting::CacheFrames, 24), std::pair(Setting::GrabTimeout, 333),
            std::pair(Setting::TriggerOrder, 0), std::pair(Setting::GainCheck, 0)};
        {
            TestWindow test(makeDevices(1), false);
            QVERIFY(test.waitForState(CameraState::Idle));
            CameraDevice& device = test.panel().device();
            for (const auto& [setting, value] : choices) {
                device.set(setting, value);
                QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, setting), value, patience);
            }
            device.set(Setting::Exposure, 5000);
            QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Exposure), 5000, patience);
        }
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        for (const auto& [setting, value] : choices) {
            if (setting != Setting::CacheFrames) { // not told while the stream runs
                QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, setting), value, patience);
            }
        }
        device.stopStream();
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::CacheFrames), 24, patience);
        // This one is the camera's own, which another program may have set meanwhile.
        QCOMPARE(valueOf(device, Setting::Exposure), 1000);
    }

    void remembersWindowAndTheme()
    {
        {
            TestWindow test(makeDevices(1));
            QVERIFY(!test.window.restoreLayout());
            QVERIFY(!rememberedTheme());
            test.window.resize(1234, 777);
            test.window.findChild<QDockWidget*>(QStringLiteral("cameras"))->hide();
            actionWith(test.window, QStringLiteral("Dark"))->trigger();
            test.window.rememberLayout();
        }
        applyTheme(Theme::System);
        TestWindow test(makeDevices(1));
        QVERIFY(test.window.restoreLayout());
        QCOMPARE(test.window.size(), QSize(1234, 777));
        QVERIFY(test.window.findChild<QDockWidget*>(QStringLiteral("cameras"))->isHidden());
        QCOMPARE(rememberedTheme(), std::optional(Theme::Dark));
        QVERIFY(rememberedFolder().isEmpty());
        rememberFolder(QStringLiteral("/somewhere"));
        QCOMPARE(rememberedFolder(), QStringLiteral("/somewhere"));
    }

    void fitsIntoASmallScreen()
    {
        const QRect screen(100, 50, 1024, 600);
        const auto isInside = [&screen](const MainWindow& window) {
            return screen.contains(QRect(window.pos(), window.size()));
        };
        Bench bench([] { return ScriptedFactory::driverFor({}); });
        {
            MainWindow window(bench, {});
            window.resize(1610, 986);
            window.fitInto(screen);
            QVERIFY(isInside(window));
            QVERIFY(window.width() > 900 && window.height() > 500);
            window.resize(1234, 777);
            window.move(700, 400);
            window.rememberLayout();
        }
        MainWindow window(bench, {});
        QVERIFY(window.restoreLayout());
        window.fitInto(screen);
        QVERIFY(isInside(window));
        window.resize(700, 450);
        window.move(200, 100);
        window.fitInto(screen);
        QCOMPARE(window.geometry(), QRect(200, 100, 700, 450));
    }

    void offersFilesOfSettingsWithACamera()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        const auto offered = [&test](bool wanted) {
            return actionWith(test.window, QStringLiteral("Save the camera's settings…"))
                           ->isEnabled() == wanted &&
                   actionWith(test.window, QStringLiteral("Load settings into the camera…"))
                           ->isEnabled() == wanted;
        };
        QVERIFY(offered(false));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QTRY_VERIFY_WITH_TIMEOUT(offered(true), patience);
        devices[0]->unplug();
        QTRY_VERIFY_WITH_TIMEOUT(offered(false), patience);
        devices[0]->replug();
        QTRY_VERIFY_WITH_TIMEOUT(offered(true), patience);
        test.window.hideCamera(test.panel().device());
        QVERIFY(offered(false));
    }

    void joinsTheDriversLinesBesideTheEvents()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        EventLog& events = test.window.events();
        events.add(EventLog::Tone::Fault, QStringLiteral("what matters"));
        const int before = events.count();
        const QLoggingCategory driver("ZRNCamera");
        for (int i = 0; i < 600; ++i) {
            qCCritical(driver) << "try lock grab event failed";
            qCCritical(driver) << " one request failed";
            qCCritical(driver) << " another request failed";
        }
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("Driver: another request failed  "
                                                              "(600 times, the last at ")),
                                 patience);
        QVERIFY(tells(events, QStringLiteral("Driver: one request failed  (600 times")));
        QVERIFY(!tells(events, QStringLiteral("try lock")));
        QCOMPARE(events.count(), before + 2);
        for (int i = 0; i < 600; ++i) {
            qCCritical(driver) << " frame size is error" << i;
        }
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("frame size is error 599")),
                                 patience);
        QVERIFY(tells(events, QStringLiteral("what matters")));
        QVERIFY(events.count() < before + 100);
    }

    void missingFramesAreThoseOfTheAccountAfterAReturn()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        const RunningPlot& missing = test.panel().frames().missingPlot();
        const CameraDevice& device = test.panel().device();
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(), QStringLiteral("0"), patience);
        devices[0]->skipNext = 3;
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.missing() >= 3, patience);
        devices[0]->unplug();
        QTRY_COMPARE_WITH_TIMEOUT(device.health().state, CameraState::Lost, patience);
        devices[0]->replug();
        QVERIFY(test.waitForState(CameraState::Streaming));
        const auto frames = device.health().counters.frames;
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.frames > frames + 5, patience);
        QVERIFY(device.health().counters.missing() >= 3);
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(),
                                  QString::number(device.health().counters.missing()), patience);
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        test.panel().device().startStream();
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(), QStringLiteral("0"), patience);
    }

    void whatIsMissingBeforeARecordingIsNotItsOwn()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("a.zrnrec"));
        {
            zrn::Recorder recorder(path.toStdString(), "{}");
            for (const auto& [number, skipped] : {std::pair(20U, 7U), std::pair(23U, 2U)}) {
                zrn::Frame frame = madeUpFrame(number);
                frame.step.missing = skipped;
                QVERIFY(recorder.add(frame));
            }
            recorder.finish();
        }
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        PlaybackPanel& playback = test.window.openRecording(path);
        const RunningPlot& missing = playback.frames().missingPlot();
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(), QStringLiteral("0"), patience);
        QCOMPARE(missing.series(0).maximum(), 0.0);
        playback.slider().setValue(1);
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(), QStringLiteral("2"), patience);
        QCOMPARE(missing.series(0).maximum(), 2.0);
        playback.slider().setValue(0);
        QTRY_COMPARE_WITH_TIMEOUT(missing.headline(), QStringLiteral("0"), patience);
        QCOMPARE(missing.series(0).maximum(), 0.0);
    }

    void theLastFramesDifferenceIsShown()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.waitForImage());
        test.panel().device().stopStream();
        QVERIFY(test.waitForState(CameraState::Idle));
        FramePanel& frames = test.panel().frames();
        QTest::qWait(2 * static_cast<int>(frames.refreshPeriod().count()));
        QTRY_COMPARE_WITH_TIMEOUT(
            frames.display()->source.frame.step.number,
            static_cast<quint32>(frames.numberPlot().series(0).newest().value), patience);
        QVERIFY(frames.display()->difference.isNull());
        for (const int factor : {1, 4}) {
            frames.panes().setAmplification(factor);
            frames.panes().setMode(ViewMode::Difference);
            const zrnview::Display& shown = *frames.display();
            QCOMPARE(shown.difference, absoluteDifference(shown.a, shown.b, factor));
        }
    }

    void savesAndLoadsTheSettingsOfACamera()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        const QString path = test.folder() + QStringLiteral("/a.json");
        device.set(Setting::Exposure, 7000);
        device.set(Setting::Gamma, 77);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 77, patience);
        device.saveSettings(path);
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(test.window.events(), QStringLiteral("ZR1: settings saved to ") + path),
            patience);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const zrnhost::CameraSettings saved = zrnhost::settingsFromJson(file.readAll());
        QCOMPARE(saved.serial, std::string("ZR1"));
        QVERIFY(saved.exposure == std::chrono::microseconds(7000));

        device.set(Setting::Exposure, 2000);
        device.set(Setting::Gamma, 11);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 11, patience);
        device.loadSettings(path);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Exposure), 7000, patience);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 77, patience);
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(test.window.events(), QStringLiteral("ZR1: settings loaded from ") + path),
            patience);
    }

    void saysWhatIsWrongWithAFileOfSettings()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        const QString path = test.folder() + QStringLiteral("/a.json");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{}");
        file.close();
        device.loadSettings(path);
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(test.window.events(), path + QStringLiteral(": it holds no camera settings")),
            patience);
        device.loadSettings(QStringLiteral("/nowhere/b.json"));
        QTRY_VERIFY_WITH_TIMEOUT(tells(test.window.events(), QStringLiteral("/nowhere/b.json: ")),
                                 patience);
        device.saveSettings(QStringLiteral("/nowhere/c.json"));
        QTRY_VERIFY_WITH_TIMEOUT(tells(test.window.events(), QStringLiteral("/nowhere/c.json: ")),
                                 patience);
    }

    void settingsAreEvents()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        const EventLog& events = test.window.events();
        for (int gain = 20; gain <= 33; ++gain) { // as a slider does
            device.set(Setting::Gain, gain);
        }
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: Gain set to 33")), patience);
        device.set(Setting::Exposure, 12345);
        const QString rounded = QStringLiteral("ZR1: Exposure set to %1 µs; the camera has %2 µs")
                                    .arg(QLocale().toString(12345), QLocale().toString(12300));
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, rounded), patience);
        device.set(Setting::TriggerOrder, 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(events, QStringLiteral("ZR1: Frame order set to newest first")), patience);
    }

    void recordingsAreEvents()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        const EventLog& events = test.window.events();
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 5, patience);
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(events, QStringLiteral("ZR1: recording to ") + test.folder()), patience);
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: recorded ")), patience);
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("/recording_0001_ZR1.zrnrec")),
                                 patience);
        test.window.setFolder(QStringLiteral("/proc/nowhere"));
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: not recording: ")), patience);
    }

    void failuresAreEvents()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        const EventLog& events = test.window.events();
        devices[0]->unplug();
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: does not answer any more")),
                                 patience);
        devices[0]->replug();
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: sends frames again")),
                                 patience);
        devices[0]->silent = true;
        QTRY_VERIFY_WITH_TIMEOUT(tells(events, QStringLiteral("ZR1: sends no frames")), patience);
        devices[0]->silent = false;
        QVERIFY(test.waitForState(CameraState::Streaming));
        devices[0]->deaf = true;
        QTRY_VERIFY_WITH_TIMEOUT(
            tells(events, QStringLiteral("ZR1: sends frames, but refuses control requests")),
            patience);
    }

    void aCameraOfAnotherProgramIsCalledThat()
    {
        const Devices devices = makeDevices(1);
        devices[0]->heldElsewhere = true;
        TestWindow test(devices);
        const auto entry = [&test] {
            const QListWidget& list = test.window.cameraList().list();
            return list.count() > 0 ? list.item(list.count() - 1)->text() : QString();
        };
        QTRY_VERIFY_WITH_TIMEOUT(entry().contains(QStringLiteral("in use by other (pid 4711)")),
                                 patience);
        QVERIFY2(test.window.firstPage().text().contains(QStringLiteral("Other programs use")),
                 qPrintable(test.window.firstPage().text()));
        devices[0]->heldElsewhere = false;
        QVERIFY(test.waitForState(CameraState::Streaming));
        devices[0]->heldElsewhere = true;
        devices[0]->replug();
        QVERIFY(test.waitForState(CameraState::Lost));
        QTRY_VERIFY_WITH_TIMEOUT(entry().contains(QStringLiteral("in use by other (pid 4711)")),
                                 patience);
        QTRY_COMPARE_WITH_TIMEOUT(stateText(test.panel().device()), QStringLiteral("not available"),
                                  patience);
    }

    void answersAreNamed()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.side().setCurrentWidget(test.window.side().properties()->parentWidget());
        const QAbstractItemModel& model = *test.window.side().properties()->model();
        const auto isNamed = [&model] {
            for (int row = 0; row < model.rowCount(); ++row) {
                if (model.index(row, PropertyModel::Answer).data().toString() ==
                    QStringLiteral("779 PropertyFailed")) {
                    return true;
                }
            }
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(isNamed(), patience);
    }

    void theFirstPageHelpsWithoutACamera()
    {
        Bench bench([] { return ScriptedFactory::driverFor({}); });
        WindowOptions options;
        options.examine = [] {
            return std::vector<zrn::Finding>{
                {"bus", zrn::Verdict::Problem, "no <device> is on the bus", "check the cable"}};
        };
        int started = 0;
        options.startVirtual = [&started] {
            ++started;
            return started == 1 ? QString() : QStringLiteral("zrnsim was not found");
        };
        MainWindow window(bench, options);
        window.resize(1000, 700);
        window.show();
        bench.start();
        FirstPage& page = window.firstPage();
        QTRY_VERIFY_WITH_TIMEOUT(page.text().contains(QStringLiteral("No camera found")), patience);
        QVERIFY(page.isVisible());
        page.doctorButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(
            page.findings().contains(QStringLiteral("no &lt;device&gt; is on the bus")), patience);
        QVERIFY(page.findings().contains(QStringLiteral("check the cable")));
        QVERIFY(page.doctorButton().isEnabled());
        page.virtualButton().click();
        QVERIFY(tells(window.events(), QStringLiteral("A second window opens")));
        page.virtualButton().click();
        QVERIFY(tells(window.events(), QStringLiteral("zrnsim was not found")));
        page.disconnect(&window); // lest a dialog waits for somebody
        const QSignalSpy recordings(&page, &FirstPage::recordingRequested);
        page.recordingButton().click();
        QCOMPARE(recordings.count(), 1);
        const QStringList clipped = clippedTexts(window);
        QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QLatin1Char('\n'))));
    }

    void threeCamerasFitASmallScreen()
    {
        TestWindow test(makeDevices(3));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QWidget* controls = test.window.findChild<QDockWidget*>(QStringLiteral("adjust"));
        QVERIFY(controls->isVisible());
        test.window.resize(1024, 600);
        QTRY_VERIFY_WITH_TIMEOUT(!controls->isVisible(), patience);
        const auto fits = [&test] {
            const QSize needed = test.window.minimumSizeHint();
            return needed.width() <= 1024 && needed.height() <= 600;
        };
        QTRY_VERIFY_WITH_TIMEOUT(fits(), patience);
        QCOMPARE(test.window.size(), QSize(1024, 600));
        QVERIFY(test.waitForImage());
        for (CameraPanel* panel : test.window.panels()) {
            QVERIFY(!panel->frames().showsGraphs());
            QVERIFY2(panel->frames().panes().view(0).height() >= 100,
                     qPrintable(QString::number(panel->frames().panes().view(0).height())));
        }
        actionWith(test.window, QStringLiteral("Controls"))->trigger();
        QVERIFY(controls->isVisible() && controls->isWindow());
        actionWith(test.window, QStringLiteral("Controls"))->trigger();
        QVERIFY(!controls->isVisible());
    }

    void whatGaveWayComesBackWithTheRoom()
    {
        TestWindow test(makeDevices(3));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QWidget* controls = test.window.findChild<QDockWidget*>(QStringLiteral("adjust"));
        test.window.resize(1024, 600);
        QTRY_VERIFY_WITH_TIMEOUT(!controls->isVisible(), patience);
        test.window.resize(1600, 1400);
        QTRY_VERIFY_WITH_TIMEOUT(controls->isVisible(), patience);
        QTRY_VERIFY_WITH_TIMEOUT(test.panel().frames().showsGraphs(), patience);
    }

    void plotsAndDocksCanBeHidden()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        QVERIFY(test.panel().frames().showsGraphs());
        actionWith(test.window, QStringLiteral("Histograms and plots"))->trigger();
        QVERIFY(!test.panel().frames().showsGraphs());
        actionWith(test.window, QStringLiteral("Histograms and plots"))->trigger();
        QVERIFY(test.panel().frames().showsGraphs());
        for (const char* name : {"List of cameras", "Controls"}) {
            actionWith(test.window, QLatin1String(name))->trigger();
        }
        for (const char* name : {"cameras", "adjust"}) {
            QVERIFY(test.window.findChild<QDockWidget*>(QLatin1String(name))->isHidden());
        }
        QAction* full = actionWith(test.window, QStringLiteral("Full screen"));
        full->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(test.window.isFullScreen(), patience);
        full->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(!test.window.isFullScreen(), patience);
    }
};

QTEST_MAIN(SessionTest)
#include "session_test.moc"
