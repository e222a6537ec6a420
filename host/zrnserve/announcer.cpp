#include "zrnserve/announcer.h"

#include "zrnserve/note.h"

#include <memory>

namespace zrnserve
{
namespace
{

constexpr const char* daemonName = "org.freedesktop.Avahi";
constexpr const char* serverInterface = "org.freedesktop.Avahi.Server";
constexpr const char* groupInterface = "org.freedesktop.Avahi.EntryGroup";

// What Avahi calls every interface and every protocol.
constexpr gint32 anyInterface = -1;
constexpr gint32 anyProtocol = -1;

/// Of a name in DNS.
constexpr std::size_t longestName = 63;

GVariant* argumentsOf(const Announcer::Service& service)
{
    const std::string text = "path=" + service.path;
    GVariantBuilder texts;
    g_variant_builder_init(&texts, G_VARIANT_TYPE("aay"));
    g_variant_builder_add_value(
        &texts, g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1));
    return g_variant_new("(iiussssqaay)", anyInterface, anyProtocol, 0U,
                         service.name.substr(0, longestName).c_str(), service.type.c_str(), "", "",
                         static_cast<guint16>(service.port), &texts);
}

} // namespace

Announcer::Announcer()
    : m_ending(g_cancellable_new())
{
    m_watch = g_bus_watch_name(G_BUS_TYPE_SYSTEM, daemonName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                               onAppeared, onVanished, this, nullptr);
}

Announcer::~Announcer()
{
    g_bus_unwatch_name(m_watch);
    g_cancellable_cancel(m_ending);
    if (m_bus && !m_group.empty()) {
        g_dbus_connection_call(m_bus, daemonName, m_group.c_str(), groupInterface, "Free", nullptr,
                               nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
        g_dbus_connection_flush_sync(m_bus, nullptr, nullptr);
    }
    g_clear_object(&m_bus);
    g_object_unref(m_ending);
}

void Announcer::announce(std::vector<Service> services)
{
    m_services = std::move(services);
    publish();
}

void Announcer::onAppeared(GDBusConnection* bus, const char* /*name*/, const char* /*owner*/,
                           gpointer self)
{
    auto& announcer = *static_cast<Announcer*>(self);
    g_set_object(&announcer.m_bus, bus);
    announcer.m_group.clear();
    announcer.call("/", serverInterface, "EntryGroupNew", nullptr,
                   [](Announcer& known, GVariant* answer) {
                       const char* path = nullptr;
                       g_variant_get(answer, "(&o)", &path);
                       known.m_group = path;
                       known.publish();
                   });
}

void Announcer::onVanished(GDBusConnection* /*bus*/, const char* /*name*/, gpointer self)
{
    auto& announcer = *static_cast<Announcer*>(self);
    g_clear_object(&announcer.m_bus);
    announcer.m_group.clear();
    note("no Avahi daemon runs: the cameras are announced when one does (avahi-daemon)");
}

void Announcer::publish()
{
    if (!m_bus || m_group.empty()) {
        return;
    }
    // The daemon answers in the order of the calls.
    call(m_group.c_str(), groupInterface, "Reset", nullptr, nullptr);
    for (const Service& service : m_services) {
        call(m_group.c_str(), groupInterface, "AddService", argumentsOf(service), nullptr);
    }
    call(m_group.c_str(), groupInterface, "Commit", nullptr, nullptr);
}

/// @param callback null: only refusals matter, which the log tells
void Announcer::call(const char* path, const char* interface, const char* method,
                     GVariant* arguments, Callback callback)
{
    struct Call {
        Announcer* self;
        Callback callback;
    };
    g_dbus_connection_call(
        m_bus, daemonName, path, interface, method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, m_ending,
        [](GObject* bus, GAsyncResult* result, gpointer data) {
            const std::unique_ptr<Call> made(static_cast<Call*>(data));
            g_autoptr(GError) error = nullptr;
            g_autoptr(GVariant) answer =
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
            if (answer && made->callback) {
                made->callback(*made->self, answer);
            } else if (!answer && !g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                note("not announced: %s", error->message);
            }
        },
        new Call{this, callback});
}

} // namespace zrnserve
