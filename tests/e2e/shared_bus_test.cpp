// Several programs and several cameras on one bus, each of which takes only what it uses.

#include "built_driver.h"
#include "client/bus.h"
#include "client/driver.h"
#include "common/statistics.h"
#include "virtual_camera.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t cameraCount = 4;
/// No machine is so slow that what is waited for takes longer.
constexpr auto patience = 120s;
/// Exit code of a zrncam that was told to stop.
constexpr int interrupted = 130;

/// A number from the environment, or what an ordinary test run has time for.
int numberFrom(const char* variable, int ordinary)
{
    const char* const text = std::getenv(variable);
    return text ? std::atoi(text) : ordinary;
}

/// A running zrncam on the real driver.
class Zrncam
{
public:
    explicit Zrncam(const QStringList& arguments, const QString& runtimeFolder = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (!runtimeFolder.isEmpty()) {
            environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeFolder);
        }
        m_process.setProcessEnvironment(environment);
        m_process.start(ZRNCAM_PATH,
                        QStringList{"--plugin", ZRN_PLUGIN_PATH, "--json"} + arguments);
        EXPECT_TRUE(m_process.waitForStarted());
    }
    ~Zrncam()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Zrncam(const Zrncam&) = delete;
    Zrncam& operator=(const Zrncam&) = delete;

    int pid() const { return static_cast<int>(m_process.processId()); }
    void interrupt() const { ::kill(static_cast<pid_t>(m_process.processId()), SIGINT); }
    bool isRunning() { return !m_process.waitForFinished(0); }

    QJsonDocument finish()
    {
        if (m_process.state() != QProcess::NotRunning) {
            EXPECT_TRUE(m_process.waitForFinished(
                static_cast<int>(std::chrono::milliseconds(patience).count())));
        }
        EXPECT_EQ(m_process.exitStatus(), QProcess::NormalExit);
        errors = m_process.readAllStandardError();
        return QJsonDocument::fromJson(m_process.readAllStandardOutput());
    }
    int exitCode() const { return m_process.exitCode(); }

    QByteArray errors; ///< after finish()

private:
    QProcess m_process;
};

class SharedBus : public testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("XDG_RUNTIME_DIR", m_runtime.path().toLocal8Bit());
        for (VirtualCamera& camera : m_cameras) {
            camera.restore();
        }
        const auto end = Clock::now() + patience;
        while (bus.cameras().size() < cameraCount && Clock::now() < end) {
            std::this_thread::sleep_for(20ms);
        }
        ASSERT_EQ(bus.cameras().size(), cameraCount);
        const QJsonDocument list = Zrncam({"list"}).finish();
        for (const QJsonValue camera : list[QLatin1String("cameras")].toArray()) {
            ports.push_back(camera[QLatin1String("port")].toString());
            serials.push_back(camera[QLatin1String("serial")].toString());
        }
        ASSERT_EQ(ports.size(), cameraCount);
    }

    /// The virtual camera with a serial.
    VirtualCamera& cameraOf(const QString& serial)
    {
        for (VirtualCamera& camera : m_cameras) {
            if (camera.serial() == serial.toStdString()) {
                return camera;
            }
        }
        throw std::runtime_error("no camera " + serial.toStdString());
    }

    /// Waits until a camera has sent so many more frames.
    void waitForFrames(const QString& serial, std::uint64_t count)
    {
        VirtualCamera& camera = cameraOf(serial);
        ASSERT_TRUE(camera.waitForCounter("framesSent", camera.counter("framesSent") + count))
            << "no frames of " << serial.toStdString();
    }

    std::uint64_t overruns(const QString& serial)
    {
        VirtualCamera& camera = cameraOf(serial);
        return camera.counter("framesOverrun") + camera.counter("framesUnrendered");
    }

    /// Whether a stream went on to its end, at the camera's rate, without a frame missing but for
    /// what the camera itself could not send.
    static void expectWholeStream(const std::string& serial, std::uint64_t frames,
                                  std::uint64_t missing, double secondsOfFrames, double seconds,
                                  std::uint64_t overrun)
    {
        SCOPED_TRACE(serial);
        std::cout << serial << ": " << frames << " frames in " << seconds << " s, " << missing
                  << " missing, " << overrun << " overruns\n";
        const double rate = numberFrom("ZRN_FRAME_RATE", 5);
        constexpr double atLeast = 0.8;
        EXPECT_GE(static_cast<double>(frames + overrun), atLeast * rate * seconds);
        EXPECT_GE(secondsOfFrames, atLeast * seconds);
        EXPECT_LE(missing, overrun);
    }

    /// On an emulated machine a stream may stand still for longer than others look at it.
    void expectUndisturbed(const QJsonValue& report, std::uint64_t overrunsBefore)
    {
        const QString serial = report[QLatin1String("camera")][QLatin1String("serial")].toString();
        const int missing = report[QLatin1String("missing")].toInt(-1);
        EXPECT_GT(report[QLatin1String("frames")].toInt(), 0) << serial.toStdString();
        EXPECT_GE(missing, 0) << serial.toStdString();
        EXPECT_LE(static_cast<std::uint64_t>(missing), overruns(serial) - overrunsBefore)
            << serial.toStdString();
        EXPECT_EQ(report[QLatin1String("splitFailures")].toInt(-1), 0) << serial.toStdString();
    }

    /// The same as expectWholeStream() of what zrncam reported.
    void expectNothingMissing(const QJsonValue& report, std::uint64_t overrunsBefore)
    {
        const QString serial = report[QLatin1String("camera")][QLatin1String("serial")].toString();
        const int frames = report[QLatin1String("frames")].toInt();
        const double rate = report[QLatin1String("measuredRate")].toDouble();
        expectWholeStream(serial.toStdString(), static_cast<std::uint64_t>(frames),
                          static_cast<std::uint64_t>(report[QLatin1String("missing")].toInt()),
                          rate > 0 ? (frames - 1) / rate : 0,
                          report[QLatin1String("seconds")].toDouble(),
                          overruns(serial) - overrunsBefore);
        EXPECT_EQ(report[QLatin1String("timeouts")].toInt(-1), 0) << serial.toStdString();
        EXPECT_EQ(report[QLatin1String("splitFailures")].toInt(-1), 0) << serial.toStdString();
    }

    QTemporaryDir m_runtime;
    VirtualCamera m_cameras[cameraCount] = {VirtualCamera(0), VirtualCamera(1), VirtualCamera(2),
                                            VirtualCamera(3)};
    zrn::Bus bus;
    std::vector<QString> ports;   // in the order of the list
    std::vector<QString> serials; // in the order of the list
};

using HeldCamera = SharedBus;

} // namespace

TEST_F(HeldCamera, ABusyFirstCameraHidesNoOther)
{
    const std::uint64_t before = overruns(serials[0]);
    Zrncam busy({"--port", ports[0], "stream", "--seconds", "3600"});
    waitForFrames(serials[0], 3);

    Zrncam list({"list"});
    const QJsonArray cameras = list.finish()[QLatin1String("cameras")].toArray();
    EXPECT_EQ(list.exitCode(), 0) << list.errors.constData();
    ASSERT_EQ(cameras.size(), static_cast<int>(cameraCount));
    EXPECT_EQ(cameras[0][QLatin1String("use")].toString(), "held");
    EXPECT_EQ(cameras[0][QLatin1String("holders")][0][QLatin1String("pid")].toInt(), busy.pid());
    EXPECT_EQ(cameras[0][QLatin1String("holders")][0][QLatin1String("program")].toString(),
              "zrncam");
    EXPECT_EQ(cameras[0][QLatin1String("serial")].toString(), serials[0]);
    EXPECT_EQ(cameras[1][QLatin1String("use")].toString(), "free");

    const QStringList choices[] = {
        {"--index", "1"}, {"--port", ports[1]}, {"--serial", serials[1]}, {}};
    for (const QStringList& choice : choices) {
        Zrncam info(choice + QStringList{"info"});
        const QJsonDocument report = info.finish();
        EXPECT_EQ(info.exitCode(), 0) << info.errors.constData();
        EXPECT_EQ(report[QLatin1String("camera")][QLatin1String("serial")].toString(), serials[1]);
    }

    busy.interrupt();
    expectUndisturbed(busy.finish().object(), before);
}

TEST_F(HeldCamera, AHeldCameraBesideAFreeOneIsNamedAlone)
{
    const std::uint64_t before = overruns(serials[1]);
    Zrncam busy({"--serial", serials[1], "stream", "--seconds", "3600"});
    waitForFrames(serials[1], 3);

    const QStringList choices[] = {
        {"--index", "1"}, {"--port", ports[1]}, {"--serial", serials[1]}};
    for (const QStringList& choice : choices) {
        Zrncam refused(choice + QStringList{"info"});
        const QJsonDocument report = refused.finish();
        EXPECT_EQ(refused.exitCode(), 4);
        const QJsonValue error = report[QLatin1String("error")];
        const QString text =
            error[QLatin1String("message")].toString() + error[QLatin1String("hint")].toString();
        EXPECT_TRUE(text.contains(QStringLiteral("zrncam (pid %1)").arg(busy.pid())))
            << text.toStdString();
        EXPECT_TRUE(text.contains(ports[1]));
        for (const std::size_t other : std::vector<std::size_t>{0, 2, 3}) {
            EXPECT_FALSE(text.contains(ports[other])) << text.toStdString();
            EXPECT_FALSE(text.contains(serials[other])) << text.toStdString();
        }
    }
    Zrncam free({"--index", "0", "info"});
    EXPECT_EQ(free.finish()[QLatin1String("camera")][QLatin1String("serial")].toString(),
              serials[0]);

    Zrncam others({"--all", "info"});
    const QJsonArray reports = others.finish().array();
    EXPECT_EQ(others.exitCode(), 0) << others.errors.constData();
    EXPECT_EQ(reports.size(), 3);

    Zrncam doctor({"doctor"});
    QString findings;
    for (const QJsonValue finding : doctor.finish()[QLatin1String("findings")].toArray()) {
        findings += finding[QLatin1String("message")].toString() + '\n';
    }
    EXPECT_EQ(doctor.exitCode(), 0) << findings.toStdString();
    EXPECT_TRUE(findings.contains(QStringLiteral("the camera at %1 is in use by zrncam (pid %2)")
                                      .arg(ports[1])
                                      .arg(busy.pid())))
        << findings.toStdString();

    busy.interrupt();
    expectUndisturbed(busy.finish().object(), before);
}

TEST_F(SharedBus, AnIndexPastTheEndIsNoCamera)
{
    Zrncam past({"--index", "4", "info"});
    const QJsonValue error = past.finish()[QLatin1String("error")];
    EXPECT_EQ(past.exitCode(), 4);
    EXPECT_EQ(error[QLatin1String("message")].toString(),
              "there is no camera 4; cameras on the bus: 4");
    Zrncam nowhere({"--port", "9-9", "info"});
    nowhere.finish();
    EXPECT_EQ(nowhere.exitCode(), 4);
    Zrncam unknown({"--serial", "ZR1", "info"});
    unknown.finish();
    EXPECT_EQ(unknown.exitCode(), 4);
}

TEST_F(SharedBus, ACameraIsToBeHadOnceItIsFree)
{
    Zrncam busy({"--port", ports[2], "stream", "--seconds", "3600"});
    waitForFrames(serials[2], 3);
    Zrncam waiting({"--port", ports[2], "info"});
    std::this_thread::sleep_for(300ms);
    busy.interrupt();
    waiting.finish();
    EXPECT_EQ(waiting.exitCode(), 0) << waiting.errors.constData();
}

TEST_F(SharedBus, ProgramsThatLookAtTheSameMomentAllFindTheirs)
{
    // Without a memory of serials, each of them opens cameras to see which is which.
    const std::size_t wanted[] = {3, 0, 2};
    for (int round = 0; round < 3; ++round) {
        QTemporaryDir memories[3];
        std::vector<std::unique_ptr<Zrncam>> programs;
        for (std::size_t i = 0; i < std::size(wanted); ++i) {
            programs.push_back(std::make_unique<Zrncam>(
                QStringList{"--serial", serials[wanted[i]], "info"}, memories[i].path()));
        }
        for (std::size_t i = 0; i < std::size(wanted); ++i) {
            const QJsonDocument report = programs[i]->finish();
            EXPECT_EQ(programs[i]->exitCode(), 0) << programs[i]->errors.constData();
            EXPECT_EQ(report[QLatin1String("camera")][QLatin1String("serial")].toString(),
                      serials[wanted[i]]);
        }
    }
}

TEST_F(SharedBus, FourProgramsStreamSideBySide)
{
    const auto seconds = std::chrono::seconds(numberFrom("ZRN_SIDE_BY_SIDE_SECONDS", 5));
    const int looks = numberFrom("ZRN_SIDE_BY_SIDE_LOOKS", 5);
    std::vector<std::uint64_t> before;
    std::vector<std::unique_ptr<Zrncam>> programs;
    for (std::size_t i = 0; i < cameraCount; ++i) {
        before.push_back(overruns(serials[i]));
        programs.push_back(std::make_unique<Zrncam>(
            QStringList{"--port", ports[i], "stream", "--seconds", "3600"}));
    }
    for (const QString& serial : serials) {
        waitForFrames(serial, 1);
    }
    const auto begin = Clock::now();
    for (int look = 0; look < looks; ++look) {
        Zrncam list({"list"});
        EXPECT_EQ(list.finish()[QLatin1String("cameras")].toArray().size(),
                  static_cast<int>(cameraCount));
        EXPECT_EQ(list.exitCode(), 0) << list.errors.constData();
        Zrncam doctor({"doctor"});
        const QJsonDocument report = doctor.finish();
        EXPECT_EQ(doctor.exitCode(), 0) << report.toJson().constData();
        // It looks at the driver's guards although there is no camera for it to open.
        bool isGuarded = false;
        for (const QJsonValue finding : report[QLatin1String("findings")].toArray()) {
            isGuarded =
                isGuarded || (finding[QLatin1String("subject")] == QLatin1String("guards") &&
                              finding[QLatin1String("verdict")] == QLatin1String("ok"));
        }
        EXPECT_TRUE(isGuarded);
    }
    std::cout << looks << " looks\n";
    std::this_thread::sleep_until(begin + seconds);
    for (const std::unique_ptr<Zrncam>& program : programs) {
        EXPECT_TRUE(program->isRunning());
        program->interrupt();
    }
    for (std::size_t i = 0; i < cameraCount; ++i) {
        const QJsonDocument report = programs[i]->finish();
        EXPECT_EQ(programs[i]->exitCode(), interrupted) << programs[i]->errors.constData();
        expectNothingMissing(report.object(), before[i]);
    }
}

TEST_F(SharedBus, OneProgramStreamsFromAll)
{
    const QString seconds = QString::number(numberFrom("ZRN_SIDE_BY_SIDE_SECONDS", 5));
    std::vector<std::uint64_t> before;
    for (const QString& serial : serials) {
        before.push_back(overruns(serial));
    }
    Zrncam all({"--all", "stream", "--seconds", seconds});
    const QJsonArray reports = all.finish().array();
    EXPECT_EQ(all.exitCode(), 0) << all.errors.constData();
    ASSERT_EQ(reports.size(), static_cast<int>(cameraCount));
    for (int i = 0; i < reports.size(); ++i) {
        expectNothingMissing(reports[i], before[static_cast<std::size_t>(i)]);
    }
}

TEST_F(SharedBus, OneThatIsLostEndsNoOther)
{
    std::vector<std::uint64_t> before;
    for (const QString& serial : serials) {
        before.push_back(overruns(serial));
    }
    Zrncam all({"--serial", serials[0], "--serial", serials[1], "--serial", serials[2], "stream",
                "--seconds", "5"});
    for (const std::size_t i : std::vector<std::size_t>{0, 1, 2}) {
        waitForFrames(serials[i], 3);
    }
    cameraOf(serials[1]).unplug();
    const QJsonArray reports = all.finish().array();
    ASSERT_EQ(reports.size(), 3);
    EXPECT_GT(reports[1][QLatin1String("timeouts")].toInt(), 0);
    for (const int i : {0, 2}) {
        EXPECT_EQ(reports[i][QLatin1String("exitCode")].toInt(-1), 0);
        expectNothingMissing(reports[i], before[static_cast<std::size_t>(i)]);
        EXPECT_GT(reports[i][QLatin1String("seconds")].toDouble(), 4.9);
    }
}

namespace
{

/// A camera of this process that streams until it is told to stop.
class Streaming
{
public:
    Streaming(IFactory& factory, const QString& serial)
        : m_camera(factory)
    {
        EXPECT_EQ(m_camera->connectDeviceBySerial(serial), ErrorCode::Success);
        EXPECT_EQ(m_camera->startStream(0), ErrorCode::Success);
        m_thread = std::thread([this] {
            while (!m_isOver) {
                ContractSpace::Images images;
                const bool isGrabbed = ContractSpace::grab(*m_camera, images) == ErrorCode::Success;
                m_end = Clock::now();
                if (isGrabbed) {
                    const std::uint64_t trailer = ContractSpace::trailerOf(*images.front());
                    m_account.addFrame(m_numbers.follow(trailer), m_end, {});
                } else {
                    ++m_failures;
                }
            }
        });
    }
    ~Streaming() { stop(); }

    void stop()
    {
        m_isOver = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    // For after the stop.
    const zrnhost::StreamAccount& account() const { return m_account; }
    int failures() const { return m_failures; } ///< grabs that brought no frame
    double seconds() const { return std::chrono::duration<double>(m_end - m_begin).count(); }

private:
    zrn::CameraObject m_camera;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_end; // used by the thread while it runs, as are the next three
    zrn::FrameNumbers m_numbers;
    zrnhost::StreamAccount m_account;
    int m_failures = 0;
    std::atomic<bool> m_isOver = false;
    std::thread m_thread;
};

} // namespace

TEST_F(SharedBus, LossesOfOneLeaveTheOthersOfTheProcessAlone)
{
    const int losses = numberFrom("ZRN_LOSSES", 10);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    const std::shared_ptr<zrn::Driver> driver = zrn::Driver::load(builtPlugin);
    const std::vector<zrn::BusCamera> cameras = bus.cameras();
    std::vector<std::unique_ptr<Streaming>> streams;
    std::vector<std::uint64_t> before;
    for (std::size_t i = 1; i < cameraCount; ++i) {
        before.push_back(overruns(serials[i]));
        ASSERT_EQ(driver->open(cameras[i]), serials[i].toStdString());
        streams.push_back(std::make_unique<Streaming>(driver->factory(), serials[i]));
    }

    VirtualCamera& lost = cameraOf(serials[0]);
    std::vector<double> milliseconds; // from the plugging in to the first frame
    auto pluggedIn = Clock::now();
    for (int loss = 0; loss <= losses && !HasFatalFailure(); ++loss) {
        zrn::CameraObject camera(driver->factory());
        ContractSpace::Images images;
        const auto tryToStream = [&] {
            const std::vector<zrn::BusCamera> now = bus.cameras();
            const auto found = std::find_if(now.begin(), now.end(), [&](const auto& candidate) {
                return candidate.port == cameras[0].port;
            });
            return found != now.end() && driver->open(*found) == serials[0].toStdString() &&
                   camera->connectDeviceBySerial(serials[0]) == ErrorCode::Success &&
                   camera->startStream(0) == ErrorCode::Success;
        };
        while (!tryToStream()) {
            camera->disconnectDevice();
            ASSERT_LT(Clock::now() - pluggedIn, patience);
            std::this_thread::sleep_for(20ms);
        }
        ASSERT_EQ(ContractSpace::grab(*camera, images), ErrorCode::Success);
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - pluggedIn).count());
        if (loss < losses) {
            lost.unplug();
            camera->stopStream(0);
            camera->disconnectDevice();
            lost.restore();
            pluggedIn = Clock::now();
        }
    }

    std::sort(milliseconds.begin(), milliseconds.end());
    const double p99 = milliseconds[(milliseconds.size() - 1) * 99 / 100];
    std::cout << losses << " losses, back within " << milliseconds[milliseconds.size() / 2]
              << " ms (median), " << p99 << " ms (p99), " << milliseconds.back()
              << " ms (longest)\n";
    const char* const factor = std::getenv("ZRN_TIME_FACTOR");
    EXPECT_LE(p99, 3000.0 * (factor ? std::atof(factor) : 1));
    for (std::size_t i = 0; i < streams.size(); ++i) {
        const QString& serial = serials[i + 1];
        streams[i]->stop();
        const zrnhost::StreamAccount& account = streams[i]->account();
        const double rate = account.rate();
        expectWholeStream(serial.toStdString(), account.frames(), account.missing(),
                          rate > 0 ? static_cast<double>(account.frames() - 1) / rate : 0,
                          streams[i]->seconds(), overruns(serial) - before[i]);
        EXPECT_EQ(streams[i]->failures(), 0) << serial.toStdString();
    }
}
