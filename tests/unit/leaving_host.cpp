// A host that leaves while its threads use cameras: leaving_host PLUGIN ACTIVITY WAY [MILLISECONDS]
//
// ACTIVITY is what the threads do: alone (one keeps a camera alive) or crowd (two that also create
// and delete cameras). WAY is how the process ends, after so many milliseconds. It prints "late"
// and a name for each call of libuvc that a forked child makes, and fails when a child does not
// end.

#include "camera_interface.h"
#include "factory_interface.h"
#include "fake_uvc.h"

#include <QPluginLoader>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#ifdef ZRN_UNDER_THREAD_SANITIZER
/// exit() is not made for signal handlers, and hosts call it there all the same. The name is the
/// sanitizer's.
extern "C" __attribute__((visibility("default"))) const char*
__tsan_default_options() // NOLINT(bugprone-reserved-identifier)
{
    return "report_signal_unsafe=0";
}
#endif

using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;

namespace
{

constexpr int width = 8;
constexpr int height = 4;

std::atomic<bool> mayExitFromHandler = false;
std::atomic<int> childsLines = 0;
pid_t parent = 0;

std::string way;

void handleMessage(QtMsgType type, const QMessageLogContext&, const QString&)
{
    if (getpid() != parent && type == QtCriticalMsg) {
        ++childsLines;
    }
    if (mayExitFromHandler.exchange(false)) {
        std::exit(EXIT_SUCCESS);
    }
}

void reportChildsCall(const fakeuvc::Call& call)
{
    if (getpid() != parent) {
        std::fprintf(stderr, "late %s\n", call.text.c_str());
    }
}

void useCamera(DeviceInterface* device, int serial)
{
    auto* const camera = dynamic_cast<CameraInterface*>(device);
    QMap<QString, QVariant> values;
    QList<CameraSpace::ImageBlock*> images;
    unsigned short gain = 0;
    device->connectDeviceBySerial(QString("ZR%1").arg(serial));
    camera->startStream(0);
    device->getProperty("Serial", values);
    camera->getGain(gain, 0);
    values["value"] = 1;
    device->setProperty("MaxGrabWaitTime", values);
    camera->grabImage(images);
    qDeleteAll(images);
    camera->stopStream(0);
    device->disconnectDevice();
}

void keepAlive(IFactory* factory)
{
    DeviceInterface* const device = factory->createDevice();
    while (true) {
        factory->enumDevice();
        useCamera(device, 1);
    }
}

void createAndDelete(IFactory* factory, int serial)
{
    while (true) {
        factory->enumDevice();
        DeviceInterface* device = factory->createDevice();
        useCamera(device, serial);
        factory->deleteDevice(device);
    }
}

void deliverFrames(fakeuvc::Camera& camera)
{
    std::vector<unsigned char> data(std::size_t{2} * width * height, 1);
    while (true) {
        fakeuvc::Bus::instance().deliver(camera, width, height, data);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

/// What a forked child may ask of its parent's driver, and get no for an answer.
int askInChild(IFactory* factory, DeviceInterface* device)
{
    alarm(10);
    auto* const camera = dynamic_cast<CameraInterface*>(device);
    DeviceInterface* other = factory->createDevice();
    QMap<QString, QVariant> values;
    QList<CameraSpace::ImageBlock*> images;
    unsigned int exposure = 0;
    unsigned short gain = 0;
    const bool isRefused = factory->enumDevice() == 0 && other &&
                           device->connectDeviceBySerial("ZR1") == ErrorCode::NothingEnumerated &&
                           other->connectDeviceByIndex(0) == ErrorCode::NothingEnumerated &&
                           device->reconnectDevice() == ErrorCode::NotConnected &&
                           device->getProperty("Serial", values) == ErrorCode::NoCamera &&
                           device->setProperty("MaxGrabWaitTime", values) == ErrorCode::NoCamera &&
                           device->executeCommand("ClearState", values) == ErrorCode::NoCamera &&
                           camera->getExposureTime(exposure, 0) == ErrorCode::NoCamera &&
                           camera->getGain(gain, 0) == ErrorCode::NoCamera &&
                           camera->startStream(0) == ErrorCode::NoCamera &&
                           camera->grabImage(images) == ErrorCode::NotStreaming &&
                           camera->discardFrames(0) == ErrorCode::Success &&
                           camera->stopStream(0) == ErrorCode::NotStreaming &&
                           device->disconnectDevice() == ErrorCode::NotConnected &&
                           factory->deleteDevice(device) == ErrorCode::NothingEnumerated &&
                           device && factory->deleteDevice(other) == ErrorCode::NothingEnumerated;
    if (!isRefused || childsLines != 1) {
        std::fprintf(stderr, "late answers, %d lines\n", childsLines.load());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

int leaveWithChildren(IFactory* factory, QPluginLoader& loader, DeviceInterface* device)
{
    for (const bool unloads : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            const int result = askInChild(factory, device);
            if (unloads) {
                loader.unload();
            }
            std::exit(result);
        }
        int status = 0;
        if (waitpid(child, &status, 0) != child || status != 0) {
            std::fprintf(stderr, "late child %d\n", status);
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

[[noreturn]] void sleepOn()
{
    while (true) {
        pause();
    }
}

} // namespace

#ifdef ZRN_UNDER_ADDRESS_SANITIZER
/// A forked child has what its parent's threads held, and no such thread: nothing that a leak
/// checker could judge.
extern "C" __attribute__((visibility("default"))) int
__lsan_is_turned_off() // NOLINT(bugprone-reserved-identifier)
{
    return parent != 0 && getpid() != parent ? 1 : 0;
}
#endif

int main(int argc, char** argv)
{
    if (argc < 4) {
        return 2;
    }
    parent = getpid();
    way = argv[3];
    const std::chrono::milliseconds delay(argc > 4 ? std::atoi(argv[4]) : 0);
    qInstallMessageHandler(handleMessage);

    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    fakeuvc::Camera& first = bus.addCamera(1, 2, width, height);
    bus.addCamera(2, 2, width, height);
    static auto& loader = *new QPluginLoader(argv[1]); // outlives the process's end
    auto* const factory = qobject_cast<IFactory*>(loader.instance());
    if (!factory || factory->enumDevice() != 2) {
        return 2;
    }
    DeviceInterface* const device = factory->createDevice();
    bus.setHook(reportChildsCall);

    // A signal that ends the host is the main thread's.
    sigset_t endSignal;
    sigemptyset(&endSignal);
    sigaddset(&endSignal, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &endSignal, nullptr);
    std::thread(deliverFrames, std::ref(first)).detach();
    if (std::strcmp(argv[2], "alone") == 0) {
        std::thread(keepAlive, factory).detach();
    } else {
        std::thread(createAndDelete, factory, 1).detach();
        std::thread(createAndDelete, factory, 2).detach();
    }
    std::this_thread::sleep_for(delay);

    if (way == "quick_exit") {
        std::quick_exit(EXIT_SUCCESS);
    } else if (way == "_exit") {
        _exit(EXIT_SUCCESS);
    } else if (way == "thread") {
        std::thread([] { std::exit(EXIT_SUCCESS); }).detach();
        sleepOn();
    } else if (way == "handler") {
        mayExitFromHandler = true;
        sleepOn();
    } else if (way == "signal") {
        std::signal(SIGUSR1, [](int) { std::exit(EXIT_SUCCESS); });
        pthread_sigmask(SIG_UNBLOCK, &endSignal, nullptr);
        kill(getpid(), SIGUSR1);
        sleepOn();
    } else if (way == "fork") {
        return leaveWithChildren(factory, loader, device);
    }
    return EXIT_SUCCESS;
}
