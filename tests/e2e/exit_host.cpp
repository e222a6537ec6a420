// Careless hosts: they enumerate, connect, stream, and leave without cleaning up.
// e2e_exit_host [HOW]: return (the default), grabbing, controlling, enumerating, thread or quick.

#include "built_driver.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

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

#ifdef __SANITIZE_THREAD__
/// The lock of QtCore's own pattern is out of the sanitizer's sight, and a thread that has logged
/// is still there when the pattern is destroyed.
[[maybe_unused]] const auto ordinaryHandler =
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
    });
#endif

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "return";
    static zrnhost::DriverPlugin& plugin = *new zrnhost::DriverPlugin(builtPlugin);
    if (plugin.factory().enumDevice() < 1) {
        return 2;
    }
    static zrnhost::Camera& camera = *new zrnhost::Camera(plugin.factory());
    if (camera->connectDeviceByIndex(0) != ErrorCode::Success) {
        return 3;
    }
    camera.writeProperty(zrnhost::keys::maxGrabWaitTime, patientGrabMs);
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
