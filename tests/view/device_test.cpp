#include "client/recording.h"
#include "client/recording_file.h"
#include "made_up_frames.h"
#include "recorded.h"
#include "scripted_driver.h"
#include "zrnview/device/bench.h"
#include "zrnview/device/camera_worker.h"
#include "zrnview/device/player.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <stdexcept>

using namespace zrnview;

namespace
{

constexpr int patience = 30000; // milliseconds, for a machine that is busy with other things
/// For tests that wait whether something happens once more.
constexpr BenchTimes shortTimes = {std::chrono::milliseconds(100), std::chrono::milliseconds(300)};
/// Longer than a look at the bus and a new try take.
constexpr int someTries = 700;

/// A bench on scripted devices.
class TestBench
{
public:
    explicit TestBench(ScriptedFactory::Devices devices, int initialCameras = 100,
                       const BenchTimes& times = {})
        : m_devices(std::move(devices))
        , bench([this] { return ScriptedFactory::driverFor(m_devices); })
    {
        bench.setInitialCameras(initialCameras);
        bench.setTimes(times);
        bench.start();
    }

    bool waitForState(const CameraDevice& device, CameraState state)
    {
        return QTest::qWaitFor([&] { return device.health().state == state; }, patience);
    }

    bool waitForDevices(std::size_t count)
    {
        return QTest::qWaitFor(
            [&] { return bench.state() == Bench::State::Ready && bench.devices().size() == count; },
            patience);
    }

private:
    ScriptedFactory::Devices m_devices;

public:
    Bench bench;
};

std::shared_ptr<ScriptedDevice> makeDevice(const char* serial)
{
    return std::make_shared<ScriptedDevice>(QString::fromLatin1(serial));
}

zrn::RecordingPlan planFor(const QTemporaryDir& folder)
{
    zrn::RecordingPlan plan;
    plan.folder = folder.path().toStdString();
    return plan;
}

/// The next frame that is ready for the screen; null when none comes.
std::shared_ptr<const zrnview::Display> nextDisplay(FrameStation& station)
{
    std::shared_ptr<const zrnview::Display> display;
    const auto taken = [&] {
        display = station.takeDisplay();
        return display != nullptr;
    };
    return QTest::qWaitFor(taken, patience) ? display : nullptr;
}

int valueOf(const CameraDevice& device, Setting setting)
{
    const SettingReading* reading = device.reading(setting);
    return reading && reading->readCode == ErrorCode::Success ? static_cast<int>(reading->value)
                                                              : -1;
}

/// A frame with images as the device sends them. @param letters of the images
Frame scriptedFrame(const ScriptedDevice& device, quint32 number, const char* letters)
{
    std::vector<MadeUpImage> images;
    for (const char* letter = letters; *letter; ++letter) {
        const QByteArray bytes = scriptedImage(device, number, *letter);
        images.push_back({*letter, {bytes.begin(), bytes.end()}});
    }
    return frameOf(static_cast<std::uint32_t>(device.width),
                   static_cast<std::uint32_t>(device.height), std::move(images));
}

} // namespace

class DeviceTest : public QObject
{
    Q_OBJECT

private slots:
    void findsCamerasAndReadsThem()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        TestBench test({first, second});
        QVERIFY(test.waitForDevices(2));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QCOMPARE(device.serial(), QStringLiteral("ZR1"));
        QCOMPARE(device.facts().width, 64U);
        QCOMPARE(device.facts().exposure.maximum.count(), 500000);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 100, patience);
        QCOMPARE(valueOf(device, Setting::CacheFrames), 16);
        QCOMPARE(test.bench.description(), QStringLiteral("Driver Scripted 1.2.3"));
    }

    void saysWhyTheDriverCannotBeLoaded()
    {
        Bench bench(
            []() -> std::shared_ptr<zrn::Driver> { throw std::runtime_error("no such file"); });
        bench.start();
        QTRY_COMPARE_WITH_TIMEOUT(bench.state(), Bench::State::Failed, patience);
        QCOMPARE(bench.description(), QStringLiteral("no such file"));
    }

    void reportsACameraThatCannotBeConnected()
    {
        auto device = makeDevice("ZR1");
        device->connectAnswer = ErrorCode::NoFrameDescriptor;
        TestBench test({device});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& camera = *test.bench.devices().front();
        QVERIFY(test.waitForState(camera, CameraState::Unusable));
        QCOMPARE(camera.health().code, ErrorCode::NoFrameDescriptor);
    }

    void streamsFramesAsTheCameraSentThem()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        const std::shared_ptr<const zrnview::Display> display = nextDisplay(device.station());
        QVERIFY(display);
        const Frame& frame = display->source.frame;
        QCOMPARE(frame.imageCount, std::size_t{2});
        QCOMPARE(bytesOf(frame.images()[0]), scriptedImage(*scripted, frame.step.number, 'A'));
        QCOMPARE(bytesOf(frame.images()[1]), scriptedImage(*scripted, frame.step.number, 'B'));
        device.stopStream();
        QVERIFY(test.waitForState(device, CameraState::Idle));
    }

    void namesTheImageOfASingleSensorB()
    {
        auto scripted = makeDevice("ZR1");
        scripted->sensorCount = 1;
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        const std::shared_ptr<const zrnview::Display> display = nextDisplay(device.station());
        QVERIFY(display);
        QVERIFY(display->a.isNull());
        QVERIFY(!display->b.isNull());
    }

    void countsMissingFrames()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.frames > 3, patience);
        QCOMPARE(device.health().counters.missing(), std::uint64_t{0});
        scripted->skipNext = 5;
        QTRY_COMPARE_WITH_TIMEOUT(device.health().counters.missing(), std::uint64_t{5}, patience);
    }

    void writesASettingAndReadsBackAllThatItTouches()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.set(Setting::RGain, 77);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::RGain), 77, patience);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 77, patience);
        device.set(Setting::Exposure, 12345);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Exposure), 12300, patience);
        QCOMPARE(static_cast<int>(device.reading(Setting::Exposure)->wanted), 12345);
    }

    void reportsARefusedSetting()
    {
        auto scripted = makeDevice("ZR1");
        scripted->exposureAnswer = ErrorCode::ExposureReadFailed;
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.set(Setting::Exposure, 2000);
        QTRY_VERIFY_WITH_TIMEOUT(device.reading(Setting::Exposure)->written, patience);
        QCOMPARE(device.reading(Setting::Exposure)->writeCode, ErrorCode::ExposureReadFailed);
        QCOMPARE(valueOf(device, Setting::Exposure), 1000);
    }

    void aDraggedSliderDoesNotQueueUp()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        int answers = 0;
        connect(&device, &CameraDevice::settingsRead, this, [&answers] { ++answers; });
        scripted->hanging = true; // as a camera that answers more slowly than a hand moves
        for (int gain = 1; gain <= 64; ++gain) {
            device.set(Setting::Gain, gain);
        }
        scripted->hanging = false;
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gain), 64, patience);
        QVERIFY2(answers < 64, "only the newest of the waiting values is written");
    }

    void unpluggingOneCameraLeavesTheOtherAlone()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        TestBench test({first, second}, 100, shortTimes);
        QVERIFY(test.waitForDevices(2));
        CameraDevice& lost = *test.bench.devices().front();
        CameraDevice& other = *test.bench.devices().back();
        for (CameraDevice* device : test.bench.devices()) {
            QVERIFY(test.waitForState(*device, CameraState::Idle));
            device->startStream();
            QVERIFY(test.waitForState(*device, CameraState::Streaming));
        }
        first->unplug();
        QVERIFY(test.waitForState(lost, CameraState::Lost));
        QTest::qWait(someTries);
        QCOMPARE(second->openCount.load(), 1);
        QCOMPARE(other.health().state, CameraState::Streaming);
    }

    void aSilentStreamIsNoticedAndExplained()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QStringList findings;
        connect(&device, &CameraDevice::silenceExplained, this,
                [&findings](const QStringList& found) { findings = found; });
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        scripted->silent = true;
        QVERIFY(test.waitForState(device, CameraState::Silent));
        QVERIFY(!findings.isEmpty());
        scripted->silent = false;
        QVERIFY(test.waitForState(device, CameraState::Streaming));
    }

    void framesCountMoreThanALostControlRequest()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        scripted->deaf = true;
        QTRY_VERIFY_WITH_TIMEOUT(!device.health().answersControls, patience);
        QVERIFY(device.health().state != CameraState::Lost);
    }

    void aSlowCameraIsNeitherLostNorRestarted_data()
    {
        QTest::addColumn<int>("period");
        QTest::newRow("two frames in a second") << 500;
        QTest::newRow("a frame in two seconds") << 2000;
    }

    void aSlowCameraIsNeitherLostNorRestarted()
    {
        QFETCH(int, period);
        auto scripted = makeDevice("ZR1");
        scripted->frameMilliseconds = period;
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.frames >= 2, patience);
        QCOMPARE(scripted->startCount.load(), 1);
        scripted->deaf = true;
        QStringList told;
        connect(&device, &CameraDevice::healthChanged, this, [&] {
            const CameraHealth& health = device.health();
            const QString news = health.state != CameraState::Streaming
                                     ? QStringLiteral("not streaming")
                                 : health.answersControls ? QStringLiteral("well")
                                                          : QStringLiteral("deaf");
            if (told.isEmpty() || told.last() != news) {
                told += news;
            }
        });
        QTRY_VERIFY_WITH_TIMEOUT(told.contains(QStringLiteral("deaf")), patience);
        const quint64 before = device.health().counters.frames;
        QTRY_VERIFY_WITH_TIMEOUT(device.health().counters.frames >= before + 3, patience);
        QCOMPARE(told.join(QLatin1Char(' ')), QStringLiteral("well deaf"));
        QCOMPARE(scripted->startCount.load(), 1);
    }

    void unplugIsNoticedAndReplugResumesWithTheSettings()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.set(Setting::GrGain, 33);
        device.set(Setting::Gamma, 400);
        device.set(Setting::Exposure, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 400, patience);
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));

        scripted->unplug();
        QVERIFY(test.waitForState(device, CameraState::Lost));
        QVERIFY(!device.isStreaming());

        scripted->replug();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        QCOMPARE(test.bench.devices().size(), std::size_t{1});
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gamma), 400, patience);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::GrGain), 33, patience);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Exposure), 5000, patience);
    }

    void aReplugLeavesTheOtherCamerasAlone()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        TestBench test({first, second});
        QVERIFY(test.waitForDevices(2));
        for (CameraDevice* device : test.bench.devices()) {
            QVERIFY(test.waitForState(*device, CameraState::Idle));
            device->startStream();
            QVERIFY(test.waitForState(*device, CameraState::Streaming));
        }
        CameraDevice& other = *test.bench.devices()[0];
        QSignalSpy changes(&other, &CameraDevice::healthChanged);
        second->unplug();
        QVERIFY(test.waitForState(*test.bench.devices()[1], CameraState::Lost));
        second->replug();
        QVERIFY(test.waitForState(*test.bench.devices()[1], CameraState::Streaming));
        QCOMPARE(first->openCount.load(), 1);
        QCOMPARE(other.health().counters.missing(), std::uint64_t{0});
        QCOMPARE(other.health().state, CameraState::Streaming);
    }

    void aNewCameraDoesNotDisturbARunningOne()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        second->plugged = false;
        TestBench test({first, second});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        second->replug();
        QVERIFY(test.waitForDevices(2));
        QCOMPARE(first->openCount.load(), 1);
        QCOMPARE(device.health().state, CameraState::Streaming);
    }

    void takesOnlyWhatIsAskedFor()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        auto third = makeDevice("ZR3");
        TestBench test({first, second, third}, 1, shortTimes);
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QTRY_COMPARE_WITH_TIMEOUT(test.bench.others().size(), std::size_t{2}, patience);
        test.bench.take(QStringLiteral("ZR3"));
        QVERIFY(test.waitForDevices(2));
        QCOMPARE(test.bench.devices()[1]->serial(), QStringLiteral("ZR3"));
        QCOMPARE(second->openCount.load(), 0);

        device.giveBack();
        QVERIFY(test.waitForState(device, CameraState::Absent));
        QTest::qWait(someTries);
        QCOMPARE(device.health().state, CameraState::Absent);
        device.take();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QCOMPARE(second->openCount.load(), 0);
    }

    void aCameraThatWasGivenBackIsTakenAgainWithItsSettings()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted}, 1, shortTimes);
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.set(Setting::Gain, 33);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::Gain), 33, patience);
        device.giveBack();
        QVERIFY(test.waitForState(device, CameraState::Absent));
        QVERIFY(!scripted->isOpen);
        scripted->replug(); // forgets
        device.startStream();
        QTest::qWait(someTries);
        QCOMPARE(device.health().state, CameraState::Absent);
        device.take();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        const std::lock_guard lock(scripted->mutex);
        QCOMPARE(static_cast<int>(scripted->gain), 33);
    }

    void saysWhoHasALostCamera()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        const auto hasRefusal = [&device] {
            return device.health().refusal.contains(QStringLiteral("in use by other (pid 4711)"));
        };
        for (const CameraState state : {CameraState::Idle, CameraState::Streaming}) {
            QVERIFY(test.waitForState(device, state));
            scripted->heldElsewhere = true;
            scripted->replug();
            QVERIFY(test.waitForState(device, CameraState::Lost));
            QTRY_VERIFY_WITH_TIMEOUT(hasRefusal(), patience);
            device.startStream();
            scripted->heldElsewhere = false;
        }
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        QVERIFY(device.health().refusal.isEmpty());
    }

    void aCameraThatMissedARequestIsFoundAllTheSame()
    {
        auto lost = makeDevice("ZR1");
        auto other = makeDevice("ZR2");
        TestBench test({lost, other}, 1);
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        lost->unplug();
        QVERIFY(test.waitForState(device, CameraState::Lost));
        lost->misreadings = 1;
        lost->replug();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QCOMPARE(test.bench.devices().size(), std::size_t{1});
        // The other one was looked at, and nothing was sent to it.
        QVERIFY(other->openCount <= 2);
        QCOMPARE(other->connectCount.load(), 0);
        QVERIFY(!other->isOpen);
    }

    void aCameraThatCannotBeConnectedIsLeftToOthers()
    {
        auto scripted = makeDevice("ZR1");
        scripted->connectAnswer = ErrorCode::NoFrameDescriptor;
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Unusable));
        QVERIFY(!scripted->isOpen);
        scripted->connectAnswer = ErrorCode::Success;
        device.take();
        QVERIFY(test.waitForState(device, CameraState::Idle));
    }

    void aRefusedCameraIsNotTakenLater()
    {
        auto scripted = makeDevice("ZR1");
        scripted->heldElsewhere = true;
        TestBench test({scripted}, 0, shortTimes);
        QTRY_COMPARE_WITH_TIMEOUT(test.bench.others().size(), std::size_t{1}, patience);
        test.bench.take(QStringLiteral("ZR1"));
        QTest::qWait(static_cast<int>(shortTimes.patience.count()) + someTries);
        scripted->heldElsewhere = false;
        QTest::qWait(someTries);
        QCOMPARE(scripted->openCount.load(), 0);
        test.bench.take(QStringLiteral("ZR1"));
        QVERIFY(test.waitForDevices(1));
    }

    void closingWhileACameraIsBeingOpenedKeepsTheDriverForIt()
    {
        auto scripted = makeDevice("ZR1");
        scripted->connectMilliseconds = 500;
        std::weak_ptr<zrn::Driver> driver;
        {
            Bench bench([&] {
                const auto made = ScriptedFactory::driverFor({scripted});
                driver = made;
                return made;
            });
            bench.start();
            QVERIFY(QTest::qWaitFor([&] { return scripted->connectCount > 0; }, patience));
            QVERIFY(bench.shutDown());
            QVERIFY(!driver.expired());
        }
        QVERIFY(driver.expired());
    }

    void aCameraOfAnotherProgramIsShownAndTakenOnceItIsFree()
    {
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        second->heldElsewhere = true;
        TestBench test({first, second}, 2);
        QVERIFY(test.waitForDevices(1));
        QTRY_COMPARE_WITH_TIMEOUT(test.bench.others().size(), std::size_t{1}, patience);
        const zrn::BusCamera other = test.bench.others().front();
        QVERIFY(!other.isFree());
        QCOMPARE(other.holderText(), std::string("other (pid 4711)"));
        QCOMPARE(second->openCount.load(), 0);
        second->heldElsewhere = false;
        QVERIFY(test.waitForDevices(2));
    }

    void aRecordingGoesOnWhileAnotherCameraIsLostAndFound()
    {
        const QTemporaryDir folder;
        auto first = makeDevice("ZR1");
        auto second = makeDevice("ZR2");
        TestBench test({first, second});
        QVERIFY(test.waitForDevices(2));
        CameraDevice& recording = *test.bench.devices()[0];
        for (CameraDevice* device : test.bench.devices()) {
            QVERIFY(test.waitForState(*device, CameraState::Idle));
            device->startStream();
            QVERIFY(test.waitForState(*device, CameraState::Streaming));
        }
        test.bench.record(planFor(folder), &recording);
        QTRY_VERIFY_WITH_TIMEOUT(recording.isRecording(), patience);
        second->unplug();
        QVERIFY(test.waitForState(*test.bench.devices()[1], CameraState::Lost));
        second->replug();
        QVERIFY(test.waitForState(*test.bench.devices()[1], CameraState::Streaming));
        QVERIFY(recording.isRecording());
        QCOMPARE(first->openCount.load(), 1);
        QCOMPARE(recording.health().counters.missing(), std::uint64_t{0});
    }

    void tellsNothingOfAStreamThatWasStopped()
    {
        const auto scripted = makeDevice("ZR1");
        const auto driver = ScriptedFactory::driverFor({scripted});
        zrn::BusCamera camera = driver->bus().camerasAndHolders().front();
        camera.serial = driver->open(camera);
        FrameStation station;
        CameraWorker worker(station);
        worker.connectTo(driver, camera);
        worker.startStream();
        // No event is taken while the stream tells of its restart.
        const auto waitFor = [](const auto& condition) {
            QDeadlineTimer end(patience);
            while (!condition() && !end.hasExpired()) {
                QThread::msleep(5);
            }
            return condition();
        };
        scripted->silent = true;
        QVERIFY(waitFor([&] { return scripted->startCount == 2; }));
        const quint32 last = scripted->frameNumber;
        scripted->silent = false;
        QVERIFY(waitFor([&] { return scripted->frameNumber > last + 2; }));
        worker.stopStream();
        const QSignalSpy answers(&worker, &CameraWorker::answered);
        QCoreApplication::processEvents();
        QVERIFY(answers.isEmpty());
    }

    void recordsEveryFrameByteForByte()
    {
        const QTemporaryDir folder;
        auto scripted = makeDevice("ZR1");
        scripted->frameMilliseconds = 2;
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.set(Setting::TriggerOrder, 0);
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        test.bench.record(planFor(folder), &device);
        QTRY_VERIFY_WITH_TIMEOUT(device.isRecording(), patience);
        QCOMPARE(valueOf(device, Setting::TriggerOrder), 2);
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 100, patience);
        device.stopRecording();
        QTRY_VERIFY_WITH_TIMEOUT(!device.isRecording(), patience);
        QTRY_COMPARE_WITH_TIMEOUT(valueOf(device, Setting::TriggerOrder), 0, patience);

        const zrn::Recording reader(fileOf(device));
        QVERIFY(reader.isComplete());
        QCOMPARE(QJsonDocument::fromJson(
                     QByteArray::fromStdString(reader.metadata()))[QLatin1String("serial")]
                     .toString(),
                 QStringLiteral("ZR1"));
        const quint32 first = reader.frame(0).step.number;
        for (int i = 0; i < reader.frameCount(); ++i) {
            const Frame frame = reader.frame(i);
            QCOMPARE(frame.step.number, first + static_cast<quint32>(i));
            QCOMPARE(bytesOf(frame.images()[0]), scriptedImage(*scripted, frame.step.number, 'A'));
            QCOMPARE(bytesOf(frame.images()[1]), scriptedImage(*scripted, frame.step.number, 'B'));
        }
    }

    void aRecordingGoesOnWithACameraThatIsBack()
    {
        const QTemporaryDir folder;
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        test.bench.record(planFor(folder), &device);
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 5, patience);
        scripted->unplug();
        QVERIFY(test.waitForState(device, CameraState::Lost));
        QVERIFY(device.isRecording());
        scripted->replug();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        const std::uint64_t written = writtenFrames(device);
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > written + 5, patience);
        device.stopRecording();
        QTRY_VERIFY_WITH_TIMEOUT(!device.isRecording(), patience);
        QCOMPARE(device.recorder()->parts().front().files.size(), std::size_t{1});
        const zrn::Recording recording(fileOf(device));
        QVERIFY(recording.isComplete());
        QCOMPARE(notesOf(recording, "lost").size(), std::size_t{1});
        QCOMPARE(notesOf(recording, "back").size(), std::size_t{1});
    }

    void aRecordingWithoutAStreamIsRefused()
    {
        const QTemporaryDir folder;
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        QSignalSpy refusals(&device, &CameraDevice::recordingRefused);
        test.bench.record(planFor(folder), &device);
        QVERIFY(refusals.wait(patience));
        QVERIFY(!device.isRecording());
    }

    void aHangingRequestIsNoticedAndDoesNotStopTheExit()
    {
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        scripted->hanging = true;
        QTRY_VERIFY_WITH_TIMEOUT(device.isStuck(), patience);
        QVERIFY(!device.shutDown(10));
        scripted->hanging = false;
        QVERIFY(device.shutDown(patience));
    }

    void aHangingRequestDoesNotCostTheRecordingItsIndex()
    {
        const QTemporaryDir folder;
        auto scripted = makeDevice("ZR1");
        TestBench test({scripted});
        QVERIFY(test.waitForDevices(1));
        CameraDevice& device = *test.bench.devices().front();
        QVERIFY(test.waitForState(device, CameraState::Idle));
        device.startStream();
        QVERIFY(test.waitForState(device, CameraState::Streaming));
        test.bench.record(planFor(folder), &device);
        QTRY_VERIFY_WITH_TIMEOUT(writtenFrames(device) > 5, patience);
        scripted->hanging = true;
        QTRY_VERIFY_WITH_TIMEOUT(device.isStuck(), patience);
        QVERIFY(!device.shutDown(10));
        QVERIFY(zrn::Recording(fileOf(device)).isComplete());
        scripted->hanging = false;
        QVERIFY(device.shutDown(patience));
    }

    void playsARecordingAtItsOwnPaceAndByteForByte()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("a.zrnrec"));
        const auto scripted = makeDevice("ZR1");
        constexpr int frames = 20;
        {
            zrn::RecordingFile file(path.toStdString(), {});
            for (quint32 number = 0; number < frames; ++number) {
                Frame frame = scriptedFrame(*scripted, number, "AB");
                frame.step.number = number;
                frame.arrival += number * std::chrono::milliseconds(10);
                file.append(frame);
            }
            file.close();
        }
        FrameStation station;
        Player player(station);
        QSignalSpy opened(&player, &Player::opened);
        QSignalSpy positions(&player, &Player::positionChanged);
        QSignalSpy playing(&player, &Player::playingChanged);
        player.open(path);
        QCOMPARE(opened.count(), 1);
        QCOMPARE(positions.count(), 1);
        QElapsedTimer time;
        time.start();
        player.play();
        QTRY_COMPARE_WITH_TIMEOUT(playing.count(), 2, patience);
        QVERIFY(time.elapsed() >= 190);
        QCOMPARE(positions.count(), frames);
        for (const int position : {17, 3}) {
            player.seek(position);
            std::shared_ptr<const zrnview::Display> display;
            do {
                display = nextDisplay(station);
                QVERIFY(display);
            } while (display->source.frame.step.number != static_cast<quint32>(position));
            QCOMPARE(bytesOf(display->source.frame.images()[1]),
                     scriptedImage(*scripted, static_cast<quint32>(position), 'B'));
        }
        QSignalSpy verified(&player, &Player::verified);
        player.verify();
        QCOMPARE(verified.first().first().value<QVector<int>>(), QVector<int>());
    }

    void verifyingNamesTheDamagedFrames()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("a.zrnrec"));
        const auto scripted = makeDevice("ZR1");
        quint64 middle = 0;
        {
            zrn::RecordingFile file(path.toStdString(), {});
            for (quint32 number = 0; number < 3; ++number) {
                file.append(scriptedFrame(*scripted, number, "A"));
                middle = number == 1 ? file.bytes() - 1000 : middle;
            }
            file.close();
        }
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.seek(static_cast<qint64>(middle));
        char byte = 0;
        file.getChar(&byte);
        file.seek(static_cast<qint64>(middle));
        file.putChar(static_cast<char>(~byte));
        file.close();

        FrameStation station;
        Player player(station);
        QSignalSpy verified(&player, &Player::verified);
        player.open(path);
        player.verify();
        QCOMPARE(verified.first().first().value<QVector<int>>(), QVector<int>{1});
    }
};

QTEST_GUILESS_MAIN(DeviceTest)
#include "device_test.moc"
