#include "umockdev/umockdev_bus.h"

#include "model/descriptors.h"

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

std::string padded(unsigned number, int width, bool isHex)
{
    std::ostringstream text;
    text << std::setfill('0') << std::setw(width) << (isHex ? std::hex : std::dec) << number;
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

std::string takeString(gchar* text)
{
    std::string result = text == nullptr ? "" : text;
    g_free(text);
    return result;
}

} // namespace

UmockdevBus::UmockdevBus(CameraList& cameras, const Options& options)
    : m_cameras(cameras)
    , m_options(options)
    , m_testbed(umockdev_testbed_new(), g_object_unref)
    , m_ports(cameras.size())
{
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        m_cameras[i]->setWakeHandler([this, i] { wake(i); });
        connectPort(i, false);
    }
}

UmockdevBus::~UmockdevBus()
{
    for (const auto& camera : m_cameras) {
        camera->detach();
        camera->setWakeHandler({});
    }
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
    port.address = m_nextAddress;
    m_nextAddress = m_nextAddress % highestAddress + 1;
    port.node = "/dev/bus/usb/" + threeDigits(busNumber) + "/" + threeDigits(port.address);
    addSysfsDevice(index, port);

    const std::string root = rootFolder();
    auto device = std::make_shared<UsbfsDevice>(
        *m_cameras[index], root + port.node, root + "/ioctl" + port.node,
        UsbfsDevice::Options{busNumber, port.address, m_options.memoryLimit});
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
    if (isAnnounced) {
        umockdev_testbed_uevent(m_testbed.get(), port.syspath.c_str(), "add");
    }
}

void UmockdevBus::addSysfsDevice(std::size_t index, Port& port)
{
    const CameraConfig config = m_cameras[index]->config();
    DescriptorSet descriptors = m_cameras[index]->descriptors();
    const bool isSuper = config.speed == UsbSpeed::Super;
    const std::string name = std::to_string(busNumber) + "-" + std::to_string(index + 1);

    NameValueList attributes;
    const auto attribute = [&](const char* attributeName, const std::string& value) {
        attributes.add(attributeName, value + "\n"); // as the kernel ends every attribute
    };
    attribute("busnum", std::to_string(busNumber));
    attribute("devnum", std::to_string(port.address));
    attribute("devpath", std::to_string(index + 1));
    attribute("speed", isSuper ? "5000" : "480");
    attribute("version", isSuper ? " 3.20" : " 2.00");
    attribute("idVendor", fourHexDigits(config.vendorId));
    attribute("idProduct", fourHexDigits(config.productId));
    attribute("bcdDevice", "0100");
    attribute("bDeviceClass", "ef");
    attribute("bDeviceSubClass", "02");
    attribute("bDeviceProtocol", "01");
    attribute("bNumConfigurations", "1");
    attribute("bConfigurationValue", std::to_string(topology::configuration));
    attribute("bNumInterfaces", " 2");
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
    properties.add("PRODUCT", padded(config.vendorId, 1, true) + "/" +
                                  padded(config.productId, 1, true) + "/100");
    properties.add("TYPE", "239/2/1");
    properties.add("ID_VENDOR_ID", fourHexDigits(config.vendorId));
    properties.add("ID_MODEL_ID", fourHexDigits(config.productId));

    port.syspath = takeString(umockdev_testbed_add_devicev(
        m_testbed.get(), "usb", name.c_str(), nullptr, attributes.array(), properties.array()));

    Bytes raw = descriptors.device;
    raw.insert(raw.end(), descriptors.configuration.begin(), descriptors.configuration.end());
    umockdev_testbed_set_attribute_binary(m_testbed.get(), port.syspath.c_str(), "descriptors",
                                          raw.data(), static_cast<gint>(raw.size()));
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
    m_cameras[index]->detach();
    device->unplug();
    m_departed.push_back({std::move(device), port.node, std::chrono::steady_clock::now()});
    if (isAnnounced) {
        umockdev_testbed_uevent(m_testbed.get(), port.syspath.c_str(), "remove");
    }
    umockdev_testbed_remove_device(m_testbed.get(), port.syspath.c_str());
    dropDeparted();
}

void UmockdevBus::plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced)
{
    const std::lock_guard cable(m_cableMutex);
    if (isPlugged(index)) {
        return;
    }
    m_cameras[index]->attach(serial);
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
