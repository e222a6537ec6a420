#include "umockdev/umockdev_bus.h"

#include "model/descriptors.h"
#include "umockdev/usbfs_camera.h"
#include "umockdev/usbfs_gadget.h"

#include <algorithm>
#include <filesystem>
#include <future>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr unsigned busNumber = 1;
constexpr unsigned highestAddress = 127;
constexpr int usbDeviceMajor = 189;

std::string padded(unsigned number, int width, bool isHex, char fill = '0')
{
    std::ostringstream text;
    text << std::setfill(fill) << std::setw(width) << (isHex ? std::hex : std::dec) << number;
    return text.str();
}

/// As in the names of device nodes.
std::string threeDigits(unsigned number)
{
    return padded(number, 3, false);
}

/// As the ids in sysfs.
std::string fourHexDigits(unsigned number)
{
    return padded(number, 4, true);
}

/// Name and value pairs in the form that the testbed takes.
class NameValueList
{
public:
    void add(std::string name, std::string value)
    {
        m_texts.push_back(std::move(name));
        m_texts.push_back(std::move(value));
    }

    /// Valid until the next change of the list.
    gchar** array()
    {
        m_pointers.clear();
        for (std::string& text : m_texts) {
            m_pointers.push_back(text.data());
        }
        m_pointers.push_back(nullptr);
        return m_pointers.data();
    }

private:
    std::vector<std::string> m_texts;
    std::vector<gchar*> m_pointers;
};

/// A device's name in sysfs: its place on the bus.
std::string nameOf(std::size_t index)
{
    return std::to_string(busNumber) + "-" + std::to_string(index + 1);
}

/// Binds an interface's entry in sysfs to usbfs, as the kernel does for as long as a process has
/// claimed it.
void bindToUsbfs(const std::string& entry, bool isBound)
{
    const std::filesystem::path link = entry + "/driver";
    std::error_code ignored; // the device may be leaving
    std::filesystem::remove(link, ignored);
    if (isBound) {
        std::filesystem::create_symlink("../../../../bus/usb/drivers/usbfs", link, ignored);
    }
}

std::string takeString(gchar* text)
{
    std::string result = text == nullptr ? "" : text;
    g_free(text);
    return result;
}

} // namespace

UmockdevBus::UmockdevBus(CameraList& cameras, GadgetList& gadgets, const Options& options)
    : m_options(options)
    , m_testbed(umockdev_testbed_new(), g_object_unref)
    , m_ports(cameras.size() + gadgets.size())
{
    std::size_t index = 0;
    for (const auto& camera : cameras) {
        m_ports[index].isCamera = true;
        addPort(index++, *camera,
                [&model = *camera](const auto& node, const auto& socket, const auto& usbfsOptions) {
                    return std::make_shared<UsbfsCamera>(model, node, socket, usbfsOptions);
                });
    }
    for (const auto& gadget : gadgets) {
        gadget->setLeaveHandler(
            [this, index](std::chrono::milliseconds absence) { leave(index, absence); });
        addPort(index++, *gadget,
                [&model = *gadget](const auto& node, const auto& socket, const auto& usbfsOptions) {
                    return std::make_shared<UsbfsGadget>(model, node, socket, usbfsOptions);
                });
    }
}

UmockdevBus::~UmockdevBus()
{
    for (const Port& port : m_ports) {
        port.model->detach();
        port.model->setWakeHandler({});
    }
}

void UmockdevBus::addPort(std::size_t index, UsbDevice& model, MakeUsbfs makeUsbfs)
{
    m_ports[index].model = &model;
    m_ports[index].makeUsbfs = std::move(makeUsbfs);
    model.setWakeHandler([this, index] { wake(index); });
    connectPort(index, false);
}

/// Pulls the cable in a moment, on the main loop's thread, because the device is still answering
/// the request that asked for it.
void UmockdevBus::leave(std::size_t index, std::chrono::milliseconds absence)
{
    constexpr guint moment = 20; // milliseconds
    const auto later = [](guint delay, std::function<void()> task) {
        const auto run = [](gpointer data) -> gboolean {
            (*static_cast<std::function<void()>*>(data))();
            return G_SOURCE_REMOVE;
        };
        const auto destroy = [](gpointer data) {
            delete static_cast<std::function<void()>*>(data);
        };
        g_timeout_add_full(G_PRIORITY_DEFAULT, delay, run,
                           new std::function<void()>(std::move(task)), destroy);
    };
    later(moment, [this, index] { unplug(index, true); });
    later(moment + static_cast<guint>(absence.count()),
          [this, index] { plug(index, std::nullopt, true); });
}

std::string UmockdevBus::rootFolder() const
{
    return takeString(umockdev_testbed_get_root_dir(m_testbed.get()));
}

void UmockdevBus::wake(std::size_t index)
{
    std::shared_ptr<UsbfsDevice> device;
    {
        const std::lock_guard lock(m_mutex);
        device = m_ports[index].device;
    }
    if (device) {
        device->wake();
    }
}

void UmockdevBus::connectPort(std::size_t index, bool isAnnounced)
{
    Port& port = m_ports[index];
    do {
        port.address = m_nextAddress;
        m_nextAddress = m_nextAddress % highestAddress + 1;
        port.node = "/dev/bus/usb/" + threeDigits(busNumber) + "/" + threeDigits(port.address);
    } while (isTaken(port));
    const std::string root = rootFolder();
    const std::string entries = root + "/sys/devices/" + nameOf(index) + "/" + nameOf(index) + ":" +
                                std::to_string(topology::configuration) + ".";
    auto device = port.makeUsbfs(root + port.node, root + "/ioctl" + port.node,
                                 {busNumber, port.address, m_options.memoryLimit,
                                  [entries](unsigned interface, bool isClaimed) {
                                      bindToUsbfs(entries + std::to_string(interface), isClaimed);
                                  }});
    GError* error = nullptr;
    if (umockdev_testbed_attach_ioctl(m_testbed.get(), port.node.c_str(), device->handler(),
                                      &error) == FALSE) {
        const std::string reason = error == nullptr ? "unknown reason" : error->message;
        g_clear_error(&error);
        throw std::runtime_error("cannot attach to " + port.node + ": " + reason);
    }
    {
        const std::lock_guard lock(m_mutex);
        port.device = std::move(device);
    }
    // Last, because a process that has seen the device may open it, and ends when nobody answers.
    addSysfsDevice(index, port);
    if (isAnnounced) {
        umockdev_testbed_uevent(m_testbed.get(), port.syspath.c_str(), "add");
    }
}

/// Whether another device has the node of @p port, or has it still open.
bool UmockdevBus::isTaken(const Port& port) const
{
    return std::any_of(m_ports.begin(), m_ports.end(),
                       [&port](const Port& other) {
                           return &other != &port && other.device && other.node == port.node;
                       }) ||
           std::any_of(m_departed.begin(), m_departed.end(),
                       [&port](const Departed& departed) { return departed.node == port.node; });
}

void UmockdevBus::addSysfsDevice(std::size_t index, Port& port)
{
    const DescriptorSet descriptors = port.model->descriptors();
    const auto byteOf = [](const Bytes& descriptor, std::size_t offset) {
        return readLittleEndian(descriptor, offset, 1);
    };
    const unsigned vendorId = readLittleEndian(descriptors.device, 8, 2);
    const unsigned productId = readLittleEndian(descriptors.device, 10, 2);
    const bool isSuper = port.model->speed() == UsbSpeed::Super;
    const std::string name = nameOf(index);

    NameValueList attributes;
    const auto attribute = [&](const char* attributeName, const std::string& value) {
        attributes.add(attributeName, value + "\n"); // as the kernel ends every attribute
    };
    attribute("busnum", std::to_string(busNumber));
    attribute("devnum", std::to_string(port.address));
    attribute("devpath", std::to_string(index + 1));
    attribute("speed", isSuper ? "5000" : "480");
    attribute("version", isSuper ? " 3.20" : " 2.00");
    attribute("idVendor", fourHexDigits(vendorId));
    attribute("idProduct", fourHexDigits(productId));
    attribute("bcdDevice", "0100");
    attribute("bDeviceClass", padded(byteOf(descriptors.device, 4), 2, true));
    attribute("bDeviceSubClass", padded(byteOf(descriptors.device, 5), 2, true));
    attribute("bDeviceProtocol", padded(byteOf(descriptors.device, 6), 2, true));
    attribute("bNumConfigurations", "1");
    attribute("bConfigurationValue", std::to_string(topology::configuration));
    attribute("bNumInterfaces", padded(byteOf(descriptors.configuration, 4), 2, false, ' '));
    attribute("bMaxPacketSize0", isSuper ? "9" : "64");
    attribute("bMaxPower", isSuper ? "896mA" : "500mA");
    attribute("bmAttributes", "80");
    attribute("maxchild", "0");
    attribute("manufacturer", descriptors.strings.at(0));
    attribute("product", descriptors.strings.at(1));
    attribute("serial", descriptors.strings.at(2));

    NameValueList properties;
    properties.add("DEVTYPE", "usb_device");
    properties.add("DRIVER", "usb");
    properties.add("DEVNAME", port.node);
    properties.add("MAJOR", std::to_string(usbDeviceMajor));
    properties.add("MINOR", std::to_string((busNumber - 1) * 128 + port.address - 1));
    properties.add("BUSNUM", threeDigits(busNumber));
    properties.add("DEVNUM", threeDigits(port.address));
    properties.add("PRODUCT",
                   padded(vendorId, 1, true) + "/" + padded(productId, 1, true) + "/100");
    properties.add("TYPE", std::to_string(byteOf(descriptors.device, 4)) + "/" +
                               std::to_string(byteOf(descriptors.device, 5)) + "/" +
                               std::to_string(byteOf(descriptors.device, 6)));
    properties.add("ID_VENDOR_ID", fourHexDigits(vendorId));
    properties.add("ID_MODEL_ID", fourHexDigits(productId));

    port.syspath = takeString(umockdev_testbed_add_devicev(
        m_testbed.get(), "usb", name.c_str(), nullptr, attributes.array(), properties.array()));

    Bytes raw = descriptors.device;
    raw.insert(raw.end(), descriptors.configuration.begin(), descriptors.configuration.end());
    umockdev_testbed_set_attribute_binary(m_testbed.get(), port.syspath.c_str(), "descriptors",
                                          raw.data(), static_cast<gint>(raw.size()));
    if (port.isCamera) {
        addSysfsInterfaces(port, name);
    }
}

void UmockdevBus::addSysfsInterfaces(Port& port, const std::string& name)
{
    port.interfaces.clear();
    for (const unsigned interface : {topology::controlInterface, topology::streamingInterface}) {
        const bool isControl = interface == topology::controlInterface;
        NameValueList attributes;
        attributes.add("bInterfaceNumber", padded(interface, 2, true) + "\n");
        attributes.add("bAlternateSetting", " 0\n");
        attributes.add("bInterfaceClass", "0e\n");
        attributes.add("bInterfaceSubClass", isControl ? "01\n" : "02\n");
        attributes.add("bInterfaceProtocol", "00\n");
        NameValueList properties;
        properties.add("DEVTYPE", "usb_interface");
        const std::string entry =
            name + ":" + std::to_string(topology::configuration) + "." + std::to_string(interface);
        port.interfaces.push_back(takeString(umockdev_testbed_add_devicev(
            m_testbed.get(), "usb", entry.c_str(), port.syspath.c_str(), attributes.array(),
            properties.array())));
    }
}

void UmockdevBus::removeSysfsDevice(Port& port)
{
    for (const std::string& interface : port.interfaces) {
        umockdev_testbed_remove_device(m_testbed.get(), interface.c_str());
    }
    umockdev_testbed_remove_device(m_testbed.get(), port.syspath.c_str());
}

void UmockdevBus::unplug(std::size_t index, bool isAnnounced)
{
    const std::lock_guard cable(m_cableMutex);
    Port& port = m_ports.at(index);
    std::shared_ptr<UsbfsDevice> device;
    {
        const std::lock_guard lock(m_mutex);
        device = std::exchange(port.device, nullptr);
    }
    if (!device) {
        return;
    }
    port.model->detach();
    device->unplug();
    m_departed.push_back({std::move(device), port.node, std::chrono::steady_clock::now()});
    if (isAnnounced) {
        umockdev_testbed_uevent(m_testbed.get(), port.syspath.c_str(), "remove");
    }
    removeSysfsDevice(port);
    dropDeparted();
}

void UmockdevBus::plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced)
{
    const std::lock_guard cable(m_cableMutex);
    if (isPlugged(index)) {
        return;
    }
    m_ports[index].model->attach(serial);
    connectPort(index, isAnnounced);
    dropDeparted();
}

/// Forgets unplugged devices that no process has open any more.
///
/// Until then they are still listened to: umockdev's library ends a process whose connection to a
/// device breaks off, as one does that is accepted by nobody.
void UmockdevBus::dropDeparted()
{
    constexpr std::chrono::seconds timeToConnect(1);
    const auto now = std::chrono::steady_clock::now();
    m_departed.remove_if([&](const Departed& departed) {
        if (now - departed.since < timeToConnect) {
            return false;
        }
        std::promise<bool> open;
        departed.device->runOnWorker([&] { open.set_value(departed.device->hasClients()); });
        if (open.get_future().get()) {
            return false;
        }
        umockdev_testbed_detach_ioctl(m_testbed.get(), departed.node.c_str(), nullptr);
        return true;
    });
}

bool UmockdevBus::isPlugged(std::size_t index) const
{
    const std::lock_guard lock(m_mutex);
    return m_ports.at(index).device != nullptr;
}

std::string UmockdevBus::location(std::size_t index) const
{
    const std::lock_guard lock(m_mutex);
    const Port& port = m_ports.at(index);
    return port.device ? std::to_string(busNumber) + ":" + std::to_string(port.address) : "";
}

} // namespace zrnsim
