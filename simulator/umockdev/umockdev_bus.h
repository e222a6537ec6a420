#pragma once

#include "model/bus.h"
#include "umockdev/usbfs_device.h"

#include <umockdev.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace zrnsim
{

/// A USB bus inside a umockdev testbed: sysfs entries, device nodes and uevents that any process
/// with umockdev's preload library takes for the machine's own.
class UmockdevBus final : public Bus
{
public:
    struct Options {
        std::size_t memoryLimit = 0; ///< of each device, see UsbfsDevice::Options
    };

    /// Plugs all devices in; gadgets have the numbers after those of the cameras. The devices
    /// outlive the bus.
    UmockdevBus(CameraList& cameras, GadgetList& gadgets, const Options& options);
    ~UmockdevBus() override;

    void unplug(std::size_t index, bool isAnnounced) override;
    void plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced) override;
    bool isPlugged(std::size_t index) const override;
    std::string location(std::size_t index) const override;

    /// Folder of the testbed.
    std::string rootFolder() const;

private:
    using MakeUsbfs = std::function<std::shared_ptr<UsbfsDevice>(
        const std::string& nodePath, const std::string& socketPath, const UsbfsDevice::Options&)>;

    /// One port, with the device that hangs on it.
    struct Port {
        UsbDevice* model = nullptr;
        MakeUsbfs makeUsbfs;
        bool isCamera = false;
        std::shared_ptr<UsbfsDevice> device; ///< null while unplugged
        std::string syspath;
        std::vector<std::string> interfaces; ///< entries in sysfs, by number: a camera's
        std::string node;
        unsigned address = 0;
    };

    /// A device after its unplugging, perhaps still open somewhere.
    struct Departed {
        std::shared_ptr<UsbfsDevice> device;
        std::string node;
        std::chrono::steady_clock::time_point since;
    };

    void addPort(std::size_t index, UsbDevice& model, MakeUsbfs makeUsbfs);
    void leave(std::size_t index, std::chrono::milliseconds absence);
    void connectPort(std::size_t index, bool isAnnounced);
    bool isTaken(const Port& port) const;
    void addSysfsDevice(std::size_t index, Port& port);
    void addSysfsInterfaces(Port& port, const std::string& name);
    void removeSysfsDevice(Port& port);
    void dropDeparted();
    void wake(std::size_t index);

    const Options m_options;
    const std::unique_ptr<UMockdevTestbed, void (*)(void*)> m_testbed;

    /// Serialises plugging and unplugging; guards what m_mutex does not. The worker thread, for
    /// which they wait, never takes it.
    std::mutex m_cableMutex;
    std::list<Departed> m_departed;
    unsigned m_nextAddress = 1;

    /// Guards the device pointers of the ports; held for moments only.
    mutable std::mutex m_mutex;
    std::vector<Port> m_ports;
};

} // namespace zrnsim
