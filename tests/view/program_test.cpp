// The viewer as a program: what main() makes of its options, with the built plugin on a virtual
// camera.

#include "virtual_camera.h"

#include <QDataStream>
#include <QProcess>
#include <QRect>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <csignal>

namespace
{

constexpr int patience = 60000; // milliseconds, for a machine that is busy with other things

/// The program without a screen, until the end of the scope.
class Viewer
{
public:
    explicit Viewer(QStringList arguments)
    {
        arguments << QStringLiteral("--plugin") << QStringLiteral(ZRN_PLUGIN_PATH);
        arguments << QStringLiteral("--folder") << m_folder.path();
        m_process.start(QStringLiteral(ZRNVIEW_PATH), arguments);
    }
    ~Viewer() { end(); }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    bool isRunning() const { return m_process.state() == QProcess::Running; }

    /// Sends a signal. @return whether it ended by itself and well
    bool endsWellOn(int signal)
    {
        ::kill(static_cast<pid_t>(m_process.processId()), signal);
        return m_process.waitForFinished(patience) &&
               m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
    }

    /// Ends it. @return what was printed on its standard error
    QByteArray end()
    {
        m_process.kill();
        m_process.waitForFinished();
        return m_process.readAllStandardError();
    }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
};

/// How many whole frames the camera has sent to anybody.
qint64 framesOf(VirtualCamera& camera)
{
    const std::vector<SentFrame> frames = camera.sentFrames();
    return std::count_if(frames.begin(), frames.end(),
                         [](const SentFrame& frame) { return frame.complete; });
}

int runToEnd(const QStringList& arguments, QByteArray& output,
             const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(ZRNVIEW_PATH), arguments);
    const bool ended = process.waitForFinished(patience);
    output = process.readAll();
    return ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace

class ProgramTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_settings.path())); }

    void showsAsManyCamerasAsAskedFor()
    {
        VirtualCamera first(0);
        VirtualCamera second(1);
        {
            const Viewer viewer({});
            QTRY_VERIFY_WITH_TIMEOUT(framesOf(first) + framesOf(second) > 5, patience);
            QVERIFY(framesOf(first) == 0 || framesOf(second) == 0);
            QVERIFY(viewer.isRunning());
        }
        const qint64 before = framesOf(first);
        const qint64 beforeToo = framesOf(second);
        const Viewer viewer({QStringLiteral("--cameras"), QStringLiteral("2"),
                             QStringLiteral("--theme"), QStringLiteral("dark")});
        QTRY_VERIFY_WITH_TIMEOUT(framesOf(first) > before + 5, patience);
        QTRY_VERIFY_WITH_TIMEOUT(framesOf(second) > beforeToo + 5, patience);
        QVERIFY(viewer.isRunning());
    }

    void showsWhatLibuvcPrintsToThoseWhoAsk()
    {
        VirtualCamera first(0);
        VirtualCamera second(1);
        const auto sent = [&] { return framesOf(first) + framesOf(second); };
        for (const bool isAsked : {false, true}) {
            const qint64 before = sent();
            Viewer viewer(isAsked ? QStringList{QStringLiteral("-v")} : QStringList());
            QTRY_VERIFY_WITH_TIMEOUT(sent() > before + 5, patience);
            const QByteArray errors = viewer.end();
            QVERIFY2(errors.contains("attempt to claim") == isAsked, errors.constData());
        }
    }

    void printsTheDriversLogForThoseWhoAsk()
    {
        VirtualCamera first(0);
        VirtualCamera second(1);
        const auto faults = [&] {
            return first.counter("controlFaults") + second.counter("controlFaults");
        };
        for (const bool isAsked : {false, true}) {
            const qint64 before = framesOf(first) + framesOf(second);
            Viewer viewer(isAsked ? QStringList{QStringLiteral("-v")} : QStringList());
            QTRY_VERIFY_WITH_TIMEOUT(framesOf(first) + framesOf(second) > before + 5, patience);
            const auto faultsBefore = faults();
            for (VirtualCamera* camera : {&first, &second}) {
                camera->tell("control-fault", {{"action", "stall"}, {"count", -1}});
            }
            QTRY_VERIFY_WITH_TIMEOUT(faults() > faultsBefore + 3, patience);
            const QByteArray errors = viewer.end();
            for (VirtualCamera* camera : {&first, &second}) {
                camera->tell("clear-faults");
            }
            QVERIFY2(errors.contains("uvc_get_gain get cur failed") == isAsked, errors.constData());
        }
    }

    void endsWellWhenItIsAskedTo()
    {
        VirtualCamera first(0);
        VirtualCamera second(1);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            const qint64 before = framesOf(first) + framesOf(second);
            Viewer viewer({});
            QTRY_VERIFY_WITH_TIMEOUT(framesOf(first) + framesOf(second) > before + 5, patience);
            QVERIFY(viewer.endsWellOn(signal));
        }
    }

    void saysThatThereIsNoScreen()
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":31415"));
        QByteArray output;
        QCOMPARE(runToEnd({}, output, environment), EXIT_FAILURE);
        QVERIFY2(output.startsWith("zrnview: there is no screen to show a window on: "),
                 output.constData());
        QVERIFY2(output.contains(":31415\nstart it in a desktop session"), output.constData());
    }

    void refusesOptionsThatItDoesNotKnow()
    {
        QByteArray output;
        QVERIFY(runToEnd({QStringLiteral("--theme"), QStringLiteral("pink")}, output) > 0);
        QVERIFY2(output.contains("--theme"), output.constData());
        QCOMPARE(runToEnd({QStringLiteral("--version")}, output), 0);
        QVERIFY2(output.startsWith("zrnview "), output.constData());
        auto outside = QProcessEnvironment::systemEnvironment();
        outside.remove(QStringLiteral("LD_PRELOAD"));
        QCOMPARE(runToEnd({QStringLiteral("--virtual=bogus")}, output, outside), 2);
        QVERIFY2(output.contains("bogus"), output.constData());
    }

    void remembersItsWindow()
    {
        VirtualCamera first(0);
        VirtualCamera second(1);
        const qint64 before = framesOf(first) + framesOf(second);
        Viewer viewer({});
        QTRY_VERIFY_WITH_TIMEOUT(framesOf(first) + framesOf(second) > before + 5, patience);
        QVERIFY(viewer.endsWellOn(SIGTERM));
        const QSettings remembered(m_settings.filePath(QStringLiteral("zrncamera/zrnview.conf")),
                                   QSettings::IniFormat);
        QDataStream geometry(remembered.value(QStringLiteral("window/geometry")).toByteArray());
        quint32 magic = 0;
        quint32 version = 0;
        QRect frame;
        QRect place; // without the frame
        geometry >> magic >> version >> frame >> place;
        QVERIFY(!place.isEmpty());
        // The screen of the platform without one.
        QVERIFY2(place.width() <= 800 && place.height() <= 800,
                 qPrintable(QStringLiteral("%1 x %2").arg(place.width()).arg(place.height())));
    }

private:
    const QTemporaryDir m_settings;
};

QTEST_GUILESS_MAIN(ProgramTest)
#include "program_test.moc"
