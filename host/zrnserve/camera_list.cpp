#include "zrnserve/camera_list.h"

#include "zrnserve/note.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace zrnserve
{
namespace
{

using namespace std::chrono_literals;

/// How often cameras whose serial could not be asked for are asked again.
constexpr guint identifySeconds = 5;

/// A stream that has lost its camera looks for it by itself, and is not to find it taken.
constexpr std::chrono::seconds precedence(5);

/// Serials that a device made up may neither fill the memory nor shape addresses and log lines.
constexpr std::size_t mostCameras = 256;

bool isAddressable(const std::string& serial)
{
    return !serial.empty() && serial.size() <= 64 &&
           std::all_of(serial.begin(), serial.end(),
                       [](unsigned char c) { return std::isalnum(c) && c < 128; });
}

/// Opens a camera for a moment: whoever opens one makes its serial known to the bus.
/// @return why it cannot be opened, or nothing
std::string open(const std::string& port)
{
    GstElement* source = gst_element_factory_make("zrnsrc", nullptr);
    if (!source) {
        return "GStreamer does not know zrnsrc";
    }
    gst_object_ref_sink(source);
    g_autoptr(GstBus) bus = gst_bus_new();
    gst_element_set_bus(source, bus);
    g_object_set(source, "port", port.c_str(), nullptr);
    std::string problem;
    if (gst_element_set_state(source, GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) {
        g_autoptr(GstMessage) message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
        g_autoptr(GError) error = nullptr;
        if (message) {
            gst_message_parse_error(message, &error, nullptr);
        }
        problem = error ? error->message : "it cannot be opened";
    }
    gst_element_set_state(source, GST_STATE_NULL);
    gst_object_unref(source);
    return problem;
}

std::string textOf(const GstStructure* structure, const char* field)
{
    const char* text = gst_structure_get_string(structure, field);
    return text ? text : "";
}

} // namespace

CameraList::CameraList(Change change)
    : m_change(std::move(change))
    , m_provider(gst_device_provider_factory_get_by_name("zrndeviceprovider"))
{
    if (!m_provider) {
        throw std::runtime_error("GStreamer does not know zrnsrc: install gstreamer1.0-zrncamera, "
                                 "or name the folder of libgstzrncamera.so in GST_PLUGIN_PATH");
    }
    m_bus = gst_device_provider_get_bus(m_provider);
    gst_bus_add_watch(
        m_bus,
        [](GstBus*, GstMessage* message, gpointer self) -> gboolean {
            auto& list = *static_cast<CameraList*>(self);
            GstDevice* device = nullptr;
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_DEVICE_ADDED) {
                gst_message_parse_device_added(message, &device);
                list.update(device, true);
            } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_DEVICE_REMOVED) {
                gst_message_parse_device_removed(message, &device);
                list.update(device, false);
            } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_DEVICE_CHANGED) {
                gst_message_parse_device_changed(message, &device, nullptr);
                list.update(device, true);
            }
            g_clear_pointer(&device, gst_object_unref);
            return TRUE;
        },
        this);
    if (!gst_device_provider_start(m_provider)) {
        gst_bus_remove_watch(m_bus);
        gst_object_unref(m_bus);
        gst_object_unref(m_provider);
        throw std::runtime_error("the USB bus cannot be watched");
    }
    GList* devices = gst_device_provider_get_devices(m_provider);
    for (GList* device = devices; device; device = device->next) {
        update(GST_DEVICE(device->data), true);
    }
    g_list_free_full(devices, gst_object_unref);
    m_timer = g_timeout_add_seconds(
        identifySeconds,
        [](gpointer self) -> gboolean {
            static_cast<CameraList*>(self)->identify();
            return TRUE;
        },
        this);
}

CameraList::~CameraList()
{
    g_source_remove(m_timer);
    if (m_identifier.joinable()) {
        m_identifier.join();
    }
    gst_device_provider_stop(m_provider);
    gst_bus_remove_watch(m_bus);
    gst_object_unref(m_bus);
    gst_object_unref(m_provider);
}

void CameraList::update(GstDevice* device, bool isPresent)
{
    g_autoptr(GstStructure) properties = gst_device_get_properties(device);
    const std::string serial = textOf(properties, "serial");
    const std::string port = textOf(properties, "port");
    if (!isPresent) {
        m_unnamed.erase(port);
        m_tried.erase(port);
    } else if (serial.empty()) {
        m_unnamed.emplace(port, Clock::now());
        identify();
        return;
    } else {
        m_unnamed.erase(port);
    }
    if (!isAddressable(serial) || (!m_entries.count(serial) && m_entries.size() == mostCameras)) {
        if (isPresent && m_tried.insert(port).second) {
            note("the camera at port %s is not offered: %s", port.c_str(),
                 isAddressable(serial) ? "too many cameras" : "its serial makes no address");
        }
        return;
    }
    expect(serial);
    Entry& entry = m_entries[serial];
    if (isPresent == entry.isPresent && port == entry.port) {
        return;
    }
    if (!isPresent && port != entry.port) {
        return; // it has come at another port before its removal was told
    }
    note("%s: %s port %s", serial.c_str(), isPresent ? "there, at" : "gone from", port.c_str());
    entry.port = port;
    entry.isPresent = isPresent;
    m_change(entry);
}

std::shared_ptr<SharedCamera> CameraList::expect(const std::string& serial)
{
    Entry& entry = m_entries[serial];
    if (!entry.camera) {
        entry.camera = std::make_shared<SharedCamera>(serial);
    }
    return entry.camera;
}

bool CameraList::isAwaited() const
{
    return std::any_of(m_entries.begin(), m_entries.end(), [](const auto& known) {
        return !known.second.isPresent && known.second.camera->counts().isOpen;
    });
}

void CameraList::identify()
{
    if (m_isIdentifying) {
        return;
    }
    const Clock::time_point newest = Clock::now() - (isAwaited() ? precedence : 0s);
    std::vector<std::pair<std::string, bool>> ports;
    for (const auto& [port, since] : m_unnamed) {
        if (since <= newest) {
            ports.emplace_back(port, m_tried.insert(port).second);
        }
    }
    if (ports.empty()) {
        return;
    }
    if (m_identifier.joinable()) {
        m_identifier.join();
    }
    m_isIdentifying = true;
    m_identifier = std::thread([this, ports] {
        for (const auto& [port, isFirst] : ports) {
            const std::string problem = open(port);
            if (!problem.empty() && isFirst) {
                note("port %s: %s", port.c_str(), problem.c_str());
            }
        }
        m_isIdentifying = false;
    });
}

} // namespace zrnserve
