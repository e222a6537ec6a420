// A careless host: enumerates, connects, streams, and returns from main without cleaning up.

#include "plugin_host.h"

int main()
{
    static PluginHost& plugin = *new PluginHost;
    if (plugin.factory().enumDevice() < 1) {
        return 2;
    }
    BaseDeviceSpace::DeviceInterface* device = plugin.factory().createDevice();
    if (device->connectDeviceByIndex(0) != ErrorCode::Success) {
        return 3;
    }
    auto* camera = dynamic_cast<CameraSpace::CameraInterface*>(device);
    if (camera->startStream(0) != ErrorCode::Success) {
        return 4;
    }
    return grab(*camera).result == ErrorCode::Success ? 0 : 5;
}
