#include "device_provider.h"

#include "client/bus_watch.h"
#include "client/error.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace
{

using namespace std::chrono_literals;
using zrn::BusCamera;
using zrn::BusEvent;

struct ZrnDevice {
    GstDevice device;
    BusCamera* camera;
};

struct ZrnDeviceClass {
    GstDeviceClass parent;
};

} // namespace

G_DEFINE_TYPE(ZrnDevice, zrn_device, GST_TYPE_DEVICE)

namespace
{

gboolean configure(GstDevice* device, GstElement* element)
{
    const BusCamera& camera = *reinterpret_cast<ZrnDevice*>(device)->camera;
    g_object_set(element, "serial", camera.serial.c_str(), "port", camera.port.c_str(), nullptr);
    return TRUE;
}

GstElement* createElement(GstDevice* device, const gchar* name)
{
    GstElement* element = gst_element_factory_make("zrnsrc", name);
    if (element) {
        configure(device, element);
    }
    return element;
}

void finalizeDevice(GObject* object)
{
    delete reinterpret_cast<ZrnDevice*>(object)->camera;
    G_OBJECT_CLASS(zrn_device_parent_class)->finalize(object);
}

/// Caps are those of the element's pads: sizes are known when a camera is open.
GstCaps* possibleCaps()
{
    GstElementFactory* factory = gst_element_factory_find("zrnsrc");
    const GList* templates = gst_element_factory_get_static_pad_templates(factory);
    GstCaps* caps =
        gst_static_pad_template_get_caps(static_cast<GstStaticPadTemplate*>(templates->data));
    gst_object_unref(factory);
    return caps;
}

GstDevice* deviceOf(const BusCamera& camera)
{
    const std::string name =
        (camera.serial.empty() ? "Camera" : camera.serial) + " at port " + camera.port;
    GstCaps* caps = possibleCaps();
    GstStructure* properties =
        gst_structure_new("zrn-device", "serial", G_TYPE_STRING, camera.serial.c_str(), "port",
                          G_TYPE_STRING, camera.port.c_str(), "device.path", G_TYPE_STRING,
                          camera.node().c_str(), "speed", G_TYPE_STRING, camera.speed().c_str(),
                          "accessible", G_TYPE_BOOLEAN, gboolean{camera.accessible}, nullptr);
    auto* device = static_cast<ZrnDevice*>(
        g_object_new(zrn_device_get_type(), "display-name", name.c_str(), "device-class",
                     "Video/Source", "caps", caps, "properties", properties, nullptr));
    device->camera = new BusCamera(camera);
    gst_structure_free(properties);
    gst_caps_unref(caps);
    return GST_DEVICE(device);
}

/// Keeps the provider's list of devices as the bus is.
///
/// Thread safety: thread-bound, but for its own thread.
class Watcher
{
public:
    explicit Watcher(GstDeviceProvider* provider)
        : m_provider(provider)
    {
        follow(0ms); // those that are there belong to the list at once
        m_thread = std::thread([this] { follow(std::chrono::hours(1)); });
    }
    ~Watcher()
    {
        m_isStopping = true;
        m_watch.stop();
        m_thread.join();
        for (const auto& [place, device] : m_devices) {
            gst_object_unref(device);
        }
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

private:
    void follow(std::chrono::milliseconds longest)
    {
        do {
            while (const std::optional<BusEvent> event = m_watch.next(longest)) {
                apply(*event);
            }
        } while (longest > 0ms && !m_isStopping);
    }

    void apply(const BusEvent& event)
    {
        const auto known = m_devices.find(event.camera.place());
        const bool isKnown = known != m_devices.end();
        if (isKnown && event.kind == BusEvent::Kind::Left) {
            gst_device_provider_device_remove(m_provider, known->second);
            gst_object_unref(known->second);
            m_devices.erase(known);
        } else if (isKnown && isOther(event.camera, known->second)) {
            GstDevice* const before = std::exchange(known->second, newDevice(event.camera));
            gst_device_provider_device_changed(m_provider, known->second, before);
            gst_object_unref(before);
        } else if (!isKnown && event.kind != BusEvent::Kind::Left) {
            const auto device = m_devices.emplace(event.camera.place(), newDevice(event.camera));
            gst_device_provider_device_add(m_provider, device.first->second);
        }
    }

    /// Who uses a camera changes more often than what a device tells.
    static bool isOther(const BusCamera& camera, GstDevice* device)
    {
        const BusCamera& before = *reinterpret_cast<ZrnDevice*>(device)->camera;
        return camera.serial != before.serial || camera.accessible != before.accessible;
    }

    static GstDevice* newDevice(const BusCamera& camera)
    {
        return static_cast<GstDevice*>(gst_object_ref_sink(deviceOf(camera)));
    }

    GstDeviceProvider* const m_provider;
    zrn::BusWatch m_watch;
    std::map<std::string, GstDevice*> m_devices; ///< by place; one reference each
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};

struct ZrnDeviceProvider {
    GstDeviceProvider provider;
    Watcher* watcher;
};

struct ZrnDeviceProviderClass {
    GstDeviceProviderClass parent;
};

} // namespace

G_DEFINE_TYPE(ZrnDeviceProvider, zrn_device_provider, GST_TYPE_DEVICE_PROVIDER)

namespace
{

GList* probe(GstDeviceProvider* /*provider*/)
{
    GList* devices = nullptr;
    for (const BusCamera& camera : zrn::busReaders().cameras()) {
        devices = g_list_append(devices, deviceOf(camera));
    }
    return devices;
}

gboolean start(GstDeviceProvider* provider)
{
    try {
        reinterpret_cast<ZrnDeviceProvider*>(provider)->watcher = new Watcher(provider);
    } catch (const zrn::Error& error) {
        GST_WARNING_OBJECT(provider, "%s", error.what());
        return FALSE;
    }
    return TRUE;
}

void stop(GstDeviceProvider* provider)
{
    delete std::exchange(reinterpret_cast<ZrnDeviceProvider*>(provider)->watcher, nullptr);
}

} // namespace

void zrn_device_class_init(ZrnDeviceClass* type)
{
    G_OBJECT_CLASS(type)->finalize = finalizeDevice;
    GST_DEVICE_CLASS(type)->create_element = createElement;
    GST_DEVICE_CLASS(type)->reconfigure_element = configure;
}

void zrn_device_init(ZrnDevice* /*device*/) {}

void zrn_device_provider_class_init(ZrnDeviceProviderClass* type)
{
    GstDeviceProviderClass* provider = GST_DEVICE_PROVIDER_CLASS(type);
    provider->probe = probe;
    provider->start = start;
    provider->stop = stop;
    gst_device_provider_class_set_static_metadata(
        provider, "ZRN camera device provider", "Source/Video",
        "Tells the USB cameras 0483:5750 on the bus, without opening them",
        "ZRN camera developers");
}

void zrn_device_provider_init(ZrnDeviceProvider* /*provider*/) {}
