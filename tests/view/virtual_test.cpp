// The viewer with the built plugin, on the real libraries, against two virtual cameras.

#include "client/recording.h"
#include "live_window.h"
#include "recorded.h"
#include "zrnview/widgets/controls_panel.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/time_line.h"

#include <QToolButton>
#include <nlohmann/json.hpp>

using namespace zrnview;

namespace
{

int controlOf(VirtualCamera& camera, const char* control)
{
    return camera.ask("controls").at("controls").at(control).at("cur").get<int>();
}

void expectSame(const Frame& frame, const zrnsim::SentImages& sent)
{
    std::size_t next = 0;
    for (const auto& [has, letter, bytes] :
         {std::tuple(sent.hasA, 'A', &sent.a), std::tuple(sent.hasB, 'B', &sent.b)}) {
        if (!has) {
            continue;
        }
        const Image& image = frame.images()[next++];
        QCOMPARE(image.letter, letter);
        QVERIFY(std::ranges::equal(image.bytes.first(bytes->size()), *bytes));
    }
    QCOMPARE(frame.imageCount, next);
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
        camera.tell("control-fault",
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
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(panel.device()) >= 20, patience);
        panel.recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(!panel.device().isRecording(), patience);

        std::map<quint32, zrnsim::FrameRequest> sent;
        for (const SentFrame& frame : camera.sentFrames()) {
            sent[frame.request.frameNumber] = frame.request;
        }
        const zrn::Recording reader(fileOf(panel.device()));
        QVERIFY(reader.isComplete());
        for (int position = 0; position < reader.frameCount(); ++position) {
            const Frame frame = reader.frame(position);
            QVERIFY(sent.count(frame.step.number));
            expectSame(frame, zrnsim::expectedImages(sent[frame.step.number]));
        }

        PlaybackPanel& playback =
            live.window.openRecording(QFile::decodeName(fileOf(panel.device()).c_str()));
        QTRY_VERIFY_WITH_TIMEOUT(playback.frames().display() != nullptr, patience);
        for (const int position : {7, 19}) {
            playback.slider().setValue(position);
            const quint32 number = reader.frame(position).step.number;
            QTRY_COMPARE_WITH_TIMEOUT(playback.frames().display()->source.frame.step.number, number,
                                      patience);
            expectSame(playback.frames().display()->source.frame,
                       zrnsim::expectedImages(sent[number]));
        }
    }

    void unplugWhileStreamingIsShownAndReplugResumes()
    {
        VirtualCamera camera(0);
        LiveWindow live(2);
        QVERIFY(live.waitForStreams(2));
        CameraPanel& panel = live.panelOf(camera);
        ControlRow& gain = live.window.side().controls()->row(Setting::Gain);
        gain.field().setValue(60);
        // The camera has it before the driver has checked it and says so.
        QTRY_COMPARE_WITH_TIMEOUT(gain.readBack(), QStringLiteral("= 60"), patience);
        camera.tell("unplug");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Lost, patience);
        QVERIFY(panel.notice().isVisible());
        QVERIFY(panel.notice().remedy().contains(QStringLiteral("Plug it in again")));
        camera.tell("plug");
        QVERIFY(live.waitForStreams(2));
        QTRY_COMPARE_WITH_TIMEOUT(controlOf(camera, "gain"), 60, patience);
        QTRY_VERIFY_WITH_TIMEOUT(!panel.notice().isVisible(), patience);
    }

    void aFrozenCameraIsExplained()
    {
        VirtualCamera camera(0);
        LiveWindow live(1);
        QVERIFY(live.waitForStreams(1));
        CameraPanel& panel = live.panelOf(camera);
        camera.tell("freeze");
        QTRY_VERIFY_WITH_TIMEOUT(panel.notice().what().startsWith(QStringLiteral("No frame")),
                                 patience);
        QVERIFY(panel.notice().remedy().contains(QStringLiteral("control requests")));
        QVERIFY2(panel.notice().remedy().contains(QStringLiteral("payloads of whole frames take")),
                 qPrintable(panel.notice().remedy()));
        camera.tell("thaw");
        QTRY_COMPARE_WITH_TIMEOUT(panel.device().health().state, CameraState::Streaming, patience);
    }
};

QTEST_MAIN(VirtualTest)
#include "virtual_test.moc"
