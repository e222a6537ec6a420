// The viewer with the built plugin, on the real libraries, against two virtual cameras.

#include "common/driver_plugin.h"
#include "recording/recording_reader.h"
#include "virtual_camera.h"
#include "zrnview/widgets/main_window.h"

#include <QApplication>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

using namespace zrnview;

namespace
{

constexpr int patience = 60000; // milliseconds, for a machine that is busy with other things

/// The viewer's window as main() makes it.
class LiveWindow
{
public:
    explicit LiveWindow(int cameras)
        : bench(
              [] {
                  auto plugin =
                      std::make_shared<zrnhost::DriverPlugin>(QStringLiteral(ZRN_PLUGIN_PATH));
                  return std::shared_ptr<IFactory>(plugin, &plugin->factory());
              },
              [] { return zrnhost::camerasOnBus(QString()); })
        , window(bench, options(cameras))
    {
        window.resize(1720, 1000);
        window.show();
        bench.start();
    }

    bool waitForStreams(std::size_t count)
    {
        return QTest::qWaitFor(
            [&] {
                return window.panels().size() == count &&
                       std::all_of(
                           window.panels().begin(), window.panels().end(), [](CameraPanel* panel) {
                               return panel->device().health().state == CameraState::Streaming &&
                                      panel->frames().display() != nullptr;
                           });
            },
            patience);
    }

    /// The panel of a virtual camera.
    CameraPanel& panelOf(VirtualCamera& camera)
    {
        const QString serial = QStringLiteral("ZR") + QString::fromStdString(camera.serialKey());
        const auto found = std::find_if(
            window.panels().begin(), window.panels().end(),
            [&serial](CameraPanel* panel) { return panel->device().serial() == serial; });
        if (found == window.panels().end()) {
            qFatal("no panel shows %s", qPrintable(serial));
        }
        window.activate(**found);
        return **found;
    }

    QString folder() const { return m_folder.path(); }

private:
    WindowOptions options(int cameras) const
    {
        WindowOptions wanted;
        wanted.camerasToShow = cameras;
        wanted.folder = m_folder.path();
        return wanted;
    }

    QTemporaryDir m_folder;

public:
    Bench bench;
    MainWindow window;
};

int controlOf(VirtualCamera& camera, const char* control)
{
    return camera.run("controls").at("controls").at(control).at("cur").get<int>();
}

void expectSame(const zrnrecording::Frame& frame, const zrnsim::SentImages& sent)
{
    std::size_t next = 0;
    for (const auto& [has, letter, bytes] :
         {std::tuple(sent.hasA, 'A', &sent.a), std::tuple(sent.hasB, 'B', &sent.b)}) {
        if (!has) {
            continue;
        }
        const zrnrecording::Image& image = frame.images.at(next++);
        QCOMPARE(image.letter, letter);
        QCOMPARE(image.data.left(static_cast<int>(bytes->size())),
                 QByteArray(reinterpret_cast<const char*>(bytes->data()),
                            static_cast<int>(bytes->size())));
    }
    QCOMPARE(frame.images.size(), next);
}

/// Saves a picture of the window where the environment asks for it.
void saveScreenshot(QWidget& window, const char* name)
{
    const QString folder = qEnvironmentVariable("ZRN_SCREENSHOTS");
    if (!folder.isEmpty()) {
        const QString path = QStringLiteral("%1/%2.png").arg(folder, QLatin1String(name));
        QVERIFY2(window.grab().save(path), qPrintable(path));
    }
}

} // namespace

class VirtualTest : public QObject
{
    Q_OBJECT

private slots:
    void controlsReachTheCamera()
    {
        VirtualCamera camera(0);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        live.panelOf(camera);
        for (const auto& [setting, control, value] :
             {std::tuple(Setting::Exposure, "brightness", 4321),
              std::tuple(Setting::Gain, "gain", 77), std::tuple(Setting::RGain, "gamma", 141),
              std::tuple(Setting::GrGain, "sharpness", 142),
              std::tuple(Setting::GbGain, "hue", 143),
              std::tuple(Setting::BGain, "saturation", 144),
              std::tuple(Setting::Gamma, "gamma", 129),
              std::tuple(Setting::Sharpness, "sharpness", 130),
              std::tuple(Setting::Hue, "hue", 126)}) {
            ControlRow& row = live.window.side().controls()->row(setting);
            row.field().setValue(value);
            QTRY_COMPARE_WITH_TIMEOUT(controlOf(camera, control), value, patience);
            QTRY_COMPARE_WITH_TIMEOUT(row.readBack(),
                                      QStringLiteral("= ") + QLocale().toString(value), patience);
        }
    }

    void aStalledControlIsExplained()
    {
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        live.panelOf(camera);
        ControlRow& row = live.window.side().controls()->row(Setting::Exposure);
        camera.run("control-fault",
                   {{"action", "stall"}, {"request", "set-cur"}, {"target", "brightness"}});
        row.field().setValue(5000);
        QTRY_VERIFY_WITH_TIMEOUT(row.message().contains(QStringLiteral("1037")), patience);
    }

    void aRecordingHoldsWhatTheCameraSent()
    {
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(panel.device().recorder() &&
                                     panel.device().recorder()->progress().frames >= 20,
                                 patience);
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(!panel.device().isRecording(), patience);

        std::map<quint32, zrnsim::FrameRequest> sent;
        for (const SentFrame& frame : camera.sentFrames()) {
            sent[frame.request.frameNumber] = frame.request;
        }
        const zrnrecording::RecordingReader reader(panel.device().recorder()->path());
        QVERIFY(reader.isComplete());
        for (int position = 0; position < reader.frameCount(); ++position) {
            const zrnrecording::Frame frame = reader.frame(position);
            QVERIFY(sent.count(frame.number));
            expectSame(frame, zrnsim::expectedImages(sent[frame.number]));
        }

        PlaybackPanel& playback = live.window.openRecording(panel.device().recorder()->path());
        QTRY_VERIFY_WITH_TIMEOUT(playback.frames().display() != nullptr, patience);
        for (const int position : {7, 19}) {
            playback.slider().setValue(position);
            const quint32 number = reader.frame(position).number;
            QTRY_COMPARE_WITH_TIMEOUT(playback.frames().display()->source.frame->number, number,
                                      patience);
            expectSame(*playback.frames().display()->source.frame,
                       zrnsim::expectedImages(sent[number]));
        }
    }

    void unplugWhileStreamingIsShownAndReplugResumes()
    {
        VirtualCamera camera(0);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        CameraPanel& panel = live.panelOf(camera);
        live.window.side().controls()->row(Setting::Gain).field().setValue(60);
        QTRY_COMPARE_WITH_TIMEOUT(controlOf(camera, "gain"), 60, patience);
        camera.run("unplug");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Lost, patience);
        QVERIFY(panel.notice().isVisible());
        camera.run("plug");
        QVERIFY(live.waitForStreams(2));
        QTRY_COMPARE_WITH_TIMEOUT(controlOf(camera, "gain"), 60, patience);
        QVERIFY(!panel.notice().isVisible());
    }

    void aFrozenCameraIsExplained()
    {
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        camera.run("freeze");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Silent, patience);
        QVERIFY(panel.notice().what().startsWith(QStringLiteral("No frame")));
        camera.run("thaw");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Streaming, patience);
    }

    void looksAsDocumented_data()
    {
        QTest::addColumn<int>("theme");
        QTest::addColumn<double>("textScale");
        QTest::addColumn<bool>("unplug");
        QTest::addColumn<int>("mode");
        const auto add = [](const char* name, Theme theme, double scale, bool unplug,
                            ViewMode mode) {
            QTest::newRow(name) << static_cast<int>(theme) << scale << unplug
                                << static_cast<int>(mode);
        };
        add("zrnview-light", Theme::Light, 1.0, false, ViewMode::SideBySide);
        add("zrnview-dark", Theme::Dark, 1.0, false, ViewMode::SideBySide);
        add("zrnview-unplugged", Theme::Light, 1.0, true, ViewMode::SideBySide);
        add("zrnview-difference", Theme::Dark, 1.0, false, ViewMode::Difference);
        add("zrnview-200-percent", Theme::Light, 2.0, false, ViewMode::SideBySide);
    }

    void looksAsDocumented()
    {
        if (!qEnvironmentVariableIsSet("ZRN_SCREENSHOTS")) {
            QSKIP("ZRN_SCREENSHOTS names no folder");
        }
        QFETCH(int, theme);
        QFETCH(double, textScale);
        QFETCH(bool, unplug);
        QFETCH(int, mode);
        const QFont before = QApplication::font();
        QFont font = before;
        font.setPointSizeF(font.pointSizeF() * textScale);
        QApplication::setFont(font);
        applyTheme(static_cast<Theme>(theme));
        {
            VirtualCamera camera(0);
            LiveWindow live(textScale > 1 ? 1 : 2);
            QVERIFY(live.waitForStreams(textScale > 1 ? 1 : 2));
            CameraPanel& panel = *live.window.panels().front();
            panel.frames().panes().setMode(static_cast<ViewMode>(mode));
            live.window.activate(panel);
            live.window.side().controls()->row(Setting::RGain).field().setValue(150);
            QTest::qWait(6000); // for the plots to have something to show
            if (unplug) {
                CameraPanel& lost = live.panelOf(camera);
                camera.run("unplug");
                QTRY_COMPARE_WITH_TIMEOUT(lost.device().health().state, CameraState::Lost,
                                          patience);
                QTest::qWait(300);
            }
            saveScreenshot(live.window, QTest::currentDataTag());
            if (unplug) {
                camera.run("plug");
                QVERIFY(live.waitForStreams(2));
            }
        }
        applyTheme(Theme::System);
        QApplication::setFont(before);
    }

    void theRecordingStripAndPlaybackLookAsDocumented()
    {
        if (!qEnvironmentVariableIsSet("ZRN_SCREENSHOTS")) {
            QSKIP("ZRN_SCREENSHOTS names no folder");
        }
        applyTheme(Theme::Dark);
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        live.window.side().setCurrentIndex(2);
        panel.recordButton().click();
        QTest::qWait(5000);
        saveScreenshot(live.window, "zrnview-recording");
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(!panel.device().isRecording(), patience);
        PlaybackPanel& playback = live.window.openRecording(panel.device().recorder()->path());
        QTRY_VERIFY_WITH_TIMEOUT(playback.frames().display() != nullptr, patience);
        playback.togglePlaying();
        QTest::qWait(3000);
        saveScreenshot(live.window, "zrnview-playback");
        applyTheme(Theme::System);
    }
};

QTEST_MAIN(VirtualTest)
#include "virtual_test.moc"
