// A host that exits without unloading the plugin or deleting its cameras. It prints the libuvc
// calls that are made after it has left main.

#include "camera_interface.h"
#include "factory_interface.h"
#include "fake_uvc.h"

#include <QPluginLoader>
#include <QReadWriteLock>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;

namespace
{

constexpr int width = 8;
constexpr int height = 4;

std::atomic<bool> leftMain = false;
std::atomic<bool> isExiting = false;
std::atomic<bool> isStopping = false;

/// A lock that is contended takes what QtCore keeps for all of them.
void contendForLock()
{
    QReadWriteLock lock;
    const QWriteLocker locker(&lock);
    lock.tryLockForRead(1);
}

void printLateCalls(const fakeuvc::Call& call)
{
    if (leftMain) {
        contendForLock();
        std::fprintf(stderr, "%s\n", call.text.c_str());
    }
}

/// Makes the stop of a stream last until the driver has seen that the process exits.
void stopForLong(const fakeuvc::Call& call)
{
    if (!leftMain && call.text.find("uvc_stop_streaming") == 0) {
        isStopping = true;
        isStopping.notify_all();
        isExiting.wait(false);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } else {
        printLateCalls(call);
    }
}

DeviceInterface* usedLate = nullptr;

/// Comes after the driver's own end, as a thread does that the host has forgotten.
void useCameraLate()
{
    if (usedLate) {
        std::fputs("late\n", stderr);
        usedLate->disconnectDevice();
    }
}

int fail(const char* what)
{
    std::fprintf(stderr, "cannot %s\n", what);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        return fail(
            "run without a plugin and one of: enumerated connected streaming exit disconnecting");
    }
    const auto stateIs = [argv](const char* state) { return std::strcmp(argv[2], state) == 0; };

    std::atexit(useCameraLate); // before the driver is there
    fakeuvc::Bus& bus = fakeuvc::Bus::instance();
    bus.setHook(printLateCalls);
    fakeuvc::Camera& camera = bus.addCamera(1, 2, width, height);
    bus.addCamera(2, 2, width, height);

    QPluginLoader loader(argv[1]);
    auto* factory = qobject_cast<IFactory*>(loader.instance());
    if (!factory || factory->enumDevice() != 2) {
        return fail("enumerate");
    }
    // Would QtCore make its means for these now, they would be gone before the cameras are.
    qSetMessagePattern(QStringLiteral("pattern: %{message}"));
    contendForLock();
    DeviceInterface* device = factory->createDevice();
    usedLate = device;
    factory->createDevice();
    if (!stateIs("enumerated")) {
        auto* interface = dynamic_cast<CameraInterface*>(device);
        if (!interface || device->connectDeviceBySerial("ZR1") != ErrorCode::Success) {
            return fail("connect");
        }
        if (!stateIs("connected") && interface->startStream(0) != ErrorCode::Success) {
            return fail("start the stream");
        }
    }

    if (stateIs("disconnecting")) {
        std::atexit([] { // registered later than the driver, and so called before it ends
            isExiting = true;
            isExiting.notify_all();
        });
        bus.setHook(stopForLong);
        std::thread([device] { device->disconnectDevice(); }).detach();
        isStopping.wait(false);
    }
    leftMain = true;
    if (stateIs("exit")) {
        // Frames keep coming while the process goes.
        std::thread([&bus, &camera] {
            std::vector<unsigned char> data(2 * width * height, 1);
            while (bus.deliver(camera, width, height, data)) {
            }
        }).detach();
        std::exit(EXIT_SUCCESS);
    }
    return EXIT_SUCCESS;
}
