// Recording in the window and looking at it again, as somebody with a mouse does.

#include "client/recording.h"
#include "file_size_limit.h"
#include "recorded.h"
#include "scripted_window.h"
#include "zrnview/orderly_end.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/record_options.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/time_line.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QToolButton>
#include <QtTest>

#include <csignal>
#include <cstdlib>

using namespace zrnview;

namespace
{

bool stripTells(TestWindow& test, const char* text)
{
    return test.panel().recordStrip().text().contains(QLatin1String(text));
}

} // namespace

class RecordTest : public QObject
{
    Q_OBJECT

private slots:
    void recordsAndPlaysBack()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(test.panel().recordStrip().text().contains(QStringLiteral("REC")),
                                 patience);
        CameraDevice& device = test.panel().device();
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 20, patience);
        for (const char* part : {" frames", " missing", "/s", " free, enough for "}) {
            QTRY_VERIFY_WITH_TIMEOUT(
                test.panel().recordStrip().text().contains(QLatin1String(part)), patience);
        }
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(
            test.panel().recordStrip().text().contains(QStringLiteral("Recorded")), patience);

        const QString path = QFile::decodeName(fileOf(device).c_str());
        PlaybackPanel& playback = test.window.openRecording(path);
        QTRY_VERIFY_WITH_TIMEOUT(playback.frames().display() != nullptr, patience);
        QTRY_COMPARE_WITH_TIMEOUT(playback.info().metadata[QLatin1String("serial")].toString(),
                                  QStringLiteral("ZR1"), patience);
        playback.slider().setValue(10);
        QTRY_COMPARE_WITH_TIMEOUT(playback.positionText(),
                                  QStringLiteral("11 of %1").arg(playback.info().frames), patience);
        const zrn::Recording reader(fileOf(device));
        const quint32 wanted = reader.frame(10).step.number;
        QTRY_COMPARE_WITH_TIMEOUT(playback.frames().display()->source.frame.step.number, wanted,
                                  patience);
        const Frame& shown = playback.frames().display()->source.frame;
        QCOMPARE(bytesOf(shown.images()[0]), scriptedImage(*devices[0], wanted, 'A'));
        QCOMPARE(bytesOf(shown.images()[1]), scriptedImage(*devices[0], wanted, 'B'));

        playback.playButton().click();
        QTRY_COMPARE_WITH_TIMEOUT(playback.slider().value(), playback.info().frames - 1, patience);
        playback.verifyButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(
            playback.notice().what().contains(QStringLiteral("as they were recorded")), patience);
        test.window.closeRecording(playback);
        QVERIFY(test.window.recordings().empty());
    }

    void aRecordingThatEndsEarlyTellsWhatItLost()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        const FileSizeLimit limit(20000);
        test.panel().recordButton().click();
        const QRegularExpression loss(
            QStringLiteral("ended early: .*[1-9][0-9]* frames not written"));
        QTRY_VERIFY_WITH_TIMEOUT(test.panel().recordStrip().text().contains(loss), patience);
    }

    void aSignalFinishesTheRecording()
    {
        endOrderlyOnSignals();
        const QTemporaryDir folder;
        {
            TestWindow test(makeDevices(1));
            test.window.setFolder(folder.path());
            QVERIFY(test.waitForState(CameraState::Streaming));
            test.panel().recordButton().click();
            CameraDevice& device = test.panel().device();
            QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 5, patience);
            QTimer::singleShot(0, [] { ::raise(SIGTERM); });
            QCOMPARE(QApplication::exec(), 0);
        }
        const QStringList files = QDir(folder.path()).entryList({QStringLiteral("*.zrnrec")});
        QCOMPARE(files.size(), 1);
        QVERIFY(zrn::Recording(folder.filePath(files.front()).toStdString()).isComplete());
    }

    void aFolderThatCannotBeWrittenIsNamed()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.setFolder(QStringLiteral("/proc/nowhere"));
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(
            test.panel().recordStrip().text().contains(QStringLiteral("/proc/nowhere")), patience);
    }

    void whatHappenedStandsOnTheTimeLine()
    {
        const Devices devices = makeDevices(1);
        TestWindow test(devices);
        QVERIFY(test.waitForState(CameraState::Streaming));
        CameraDevice& device = test.panel().device();
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 5, patience);
        test.row(Setting::Gain).field().setValue(33);
        const auto hasGain = [&] {
            const SettingReading* gain = device.reading(Setting::Gain);
            return gain && gain->value == 33;
        };
        QTRY_VERIFY_WITH_TIMEOUT(hasGain(), patience);
        devices[0]->unplug();
        QVERIFY(test.waitForState(CameraState::Lost));
        devices[0]->replug();
        QVERIFY(test.waitForState(CameraState::Streaming));
        const std::uint64_t written = writtenFrames(device);
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > written + 5, patience);
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(!device.isRecording(), patience);

        const zrn::Recording recording(fileOf(device));
        int changed = 0;
        while (recording.frame(changed).gain != 33) {
            ++changed;
        }
        PlaybackPanel& playback = test.window.openRecording(QString::fromStdString(fileOf(device)));
        QTRY_VERIFY_WITH_TIMEOUT(!playback.info().events.empty(), patience);
        QVERIFY(playback.events().isVisible());
        const auto rowOf = [&](const char* text) {
            const auto found = playback.events().findItems(QLatin1String(text), Qt::MatchContains);
            return found.isEmpty() ? -1 : playback.events().row(found.front());
        };
        const int gain = rowOf("Gain = 33");
        QVERIFY(gain >= 0);
        QVERIFY(rowOf("No frames: gone") > gain);
        QVERIFY(rowOf("Frames again after ") > rowOf("No frames: gone"));
        QCOMPARE(rowOf("Exposure"), -1); // which did not change
        const int position = playback.info().events.at(static_cast<std::size_t>(gain)).position;
        QVERIFY(std::abs(position - changed) <= 1); // a frame may be on its way meanwhile
        const int place = playback.slider().placeOf(position);
        QVERIFY(playback.slider().textAt(place).contains(QStringLiteral("Gain = 33")));
        QVERIFY(playback.slider().textAt(-100).isEmpty());

        playback.events().setCurrentRow(gain);
        QTest::keyClick(&playback.events(), Qt::Key_Return);
        const QString expected =
            QStringLiteral("%1 of %2").arg(position + 1).arg(playback.info().frames);
        QTRY_COMPARE_WITH_TIMEOUT(playback.positionText(), expected, patience);
    }

    void stopsAfterAsManyFramesAsAreWanted()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.recordOptions().framesBox().setChecked(true);
        test.window.recordOptions().framesField().setValue(12);
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(stripTells(test, "<b>Recorded</b> 12 frames"), patience);
        QTRY_COMPARE_WITH_TIMEOUT(test.panel().recordButton().text(), QStringLiteral("Record"),
                                  patience);
        const zrn::Recording recording(fileOf(test.panel().device()));
        QVERIFY(recording.isComplete());
        QCOMPARE(recording.frameCount(), 12);
    }

    void stopsAfterAsLongAsIsWanted()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.recordOptions().secondsBox().setChecked(true);
        test.window.recordOptions().secondsField().setValue(0.5);
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(stripTells(test, "<b>Recorded</b>"), patience);
        const zrn::Recording recording(fileOf(test.panel().device()));
        QVERIFY(recording.frameCount() > 0);
        QVERIFY(recording.duration() <= std::chrono::milliseconds(500));
    }

    void keepsWhatCameBeforeATrigger()
    {
        TestWindow test(makeDevices(1));
        QVERIFY(test.waitForState(CameraState::Streaming));
        RecordOptions& options = test.window.recordOptions();
        options.triggerBox().setChecked(true);
        options.beforeField().setValue(1000);
        options.framesBox().setChecked(true);
        options.framesField().setValue(5);
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(stripTells(test, "Waiting for a trigger"), patience);
        CameraDevice& device = test.panel().device();
        const std::uint64_t frames = device.health().counters.frames;
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.frames > frames + 10, patience);
        QVERIFY(QDir(test.folder()).entryList(QDir::Files).empty());

        QVERIFY(test.panel().recordStrip().triggerButton().isVisible());
        test.panel().recordStrip().triggerButton().click();
        QTRY_COMPARE_WITH_TIMEOUT(device.recorder()->progress().doneSets, std::size_t{1}, patience);
        QVERIFY(device.isRecording()); // for the next trigger
        test.panel().recordButton().click();
        QTRY_VERIFY_WITH_TIMEOUT(stripTells(test, "<b>Recorded</b>"), patience);
        QVERIFY(!test.panel().recordStrip().triggerButton().isVisible());

        const zrn::Recording recording(fileOf(device));
        QCOMPARE(notesOf(recording, "camera").size(), std::size_t{1});
        const auto trigger = notesOf(recording, "camera").front().time;
        int after = 0;
        for (int i = 0; i < recording.frameCount(); ++i) {
            after += recording.frame(i).arrival > trigger ? 1 : 0;
        }
        QCOMPARE(after, 5);
        QVERIFY(recording.frameCount() >= 15);
    }

    void recordsSeveralCamerasAsOneSet()
    {
        TestWindow test(makeDevices(2));
        QVERIFY(test.waitForState(CameraState::Streaming));
        test.window.recordOptions().allCamerasBox().setChecked(true);
        test.panel(0).recordButton().click();
        for (std::size_t i = 0; i < 2; ++i) {
            QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(test.panel(i).device()) > 5, patience);
        }
        test.panel(1).recordButton().click();
        for (std::size_t i = 0; i < 2; ++i) {
            QTRY_VERIFY_WITH_TIMEOUT(!test.panel(i).device().isRecording(), patience);
            QTRY_COMPARE_WITH_TIMEOUT(test.panel(i).recordButton().text(), QStringLiteral("Record"),
                                      patience);
            const zrn::Recording recording(fileOf(test.panel(i).device()));
            QVERIFY(recording.isComplete());
            QVERIFY(recording.frameCount() > 5);
        }
        const QStringList expected{QStringLiteral("recording_0001.json"),
                                   QStringLiteral("recording_0001_ZR1.zrnrec"),
                                   QStringLiteral("recording_0001_ZR2.zrnrec")};
        QCOMPARE(QDir(test.folder()).entryList(QDir::Files, QDir::Name), expected);
    }

    void oneTriggerIsForAllCameras()
    {
        TestWindow test(makeDevices(2));
        QVERIFY(test.waitForState(CameraState::Streaming));
        RecordOptions& options = test.window.recordOptions();
        options.allCamerasBox().setChecked(true);
        options.triggerBox().setChecked(true);
        options.framesBox().setChecked(true);
        test.panel().recordButton().click();
        for (std::size_t i = 0; i < 2; ++i) {
            QTRY_VERIFY_WITH_TIMEOUT(test.panel(i).device().isRecording(), patience);
        }
        test.bench.trigger();
        for (std::size_t i = 0; i < 2; ++i) {
            const CameraDevice& device = test.panel(i).device();
            QTRY_COMPARE_WITH_TIMEOUT(device.recorder()->progress().doneSets, std::size_t{1},
                                      patience);
            QCOMPARE(notesOf(zrn::Recording(fileOf(device)), "camera").size(), std::size_t{1});
        }
    }
};

QTEST_MAIN(RecordTest)
#include "record_test.moc"
