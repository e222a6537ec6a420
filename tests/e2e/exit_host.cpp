// Careless hosts: they enumerate, connect, stream, and leave without cleaning up.
// e2e_exit_host [HOW]: return (the default), grabbing, controlling, enumerating, creating, handler,
// fork, thread or quick.

#include "built_driver.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

/// Goes on doing it while the process leaves.
template <typename Action>
void keepDoing(Action action)
{
    std::thread([action] {
        while (true) {
            action();
        }
    }).detach();
}

#ifdef ZRN_UNDER_THREAD_SANITIZER
/// The lock of QtCore's own pattern is out of the sanitizer's sight, and a thread that has logged
/// is still there when the pattern is destroyed.
[[maybe_unused]] const auto ordinaryHandler =
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
    });
#endif

std::atomic<int> newObjects = 0; ///< that were used up

/// As a host does that makes a new object for each of its looks at the camera.
void useNewObject(IFactory& factory)
{
    BaseDeviceSpace::DeviceInterface* device = factory.createDevice();
    if (device->connectDeviceByIndex(0) == ErrorCode::Success) {
        unsigned short gain = 0;
        dynamic_cast<CameraSpace::CameraInterface&>(*device).getGain(gain, 0);
    } else {
        factory.enumDevice();
    }
    factory.deleteDevice(device);
    ++newObjects;
}

std::atomic<bool> mayExit = false;

void exitInHandler(QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                   const QString& /*text*/)
{
    if (mayExit.exchange(false)) {
        std::exit(0);
    }
}

/// @return whether a child that uses the camera and exits does both in time, and is refused.
bool isChildRefused(zrn::CameraObject& camera)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        unsigned short gain = 0;
        std::exit(camera->getGain(gain, 0) == ErrorCode::NoCamera ? 0 : 1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "return";
    static zrn::DriverPlugin& plugin = *new zrn::DriverPlugin(builtPlugin);
    if (plugin.factory().enumDevice() < 1) {
        return 2;
    }
    static zrn::CameraObject& camera = *new zrn::CameraObject(plugin.factory());
    if (camera->connectDeviceByIndex(0) != ErrorCode::Success) {
        return 3;
    }
    camera.writeProperty(zrn::keys::maxGrabWaitTime, patientGrabMs);
    if (camera->startStream(0) != ErrorCode::Success) {
        return 4;
    }
    if (how == "grabbing") {
        keepDoing([] { grabFrom(camera); });
    } else if (how == "controlling") {
        keepDoing([] { camera->setGain(20, 0); });
    } else if (how == "enumerating") {
        keepDoing([] { plugin.factory().enumDevice(); });
        return 0;
    } else if (how == "creating") {
        keepDoing([] { useNewObject(plugin.factory()); });
        keepDoing([] { useNewObject(plugin.factory()); });
        constexpr int someObjects = 4;
        while (newObjects < someObjects) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return 0;
    } else if (how == "handler") {
        qInstallMessageHandler(exitInHandler);
        mayExit = true;
        keepDoing([] { camera->stopStream(0); });
        pause();
    } else if (how == "fork") {
        keepDoing([] { camera->setGain(20, 0); });
        return isChildRefused(camera) ? 0 : 6;
    }
    if (grabFrom(camera).result != ErrorCode::Success) {
        return 5;
    }
    if (how == "thread") {
        std::thread([] { std::exit(0); }).join();
    } else if (how == "quick") {
        std::quick_exit(0);
    }
    return 0;
}
