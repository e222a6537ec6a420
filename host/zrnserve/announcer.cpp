#include "zrnserve/announcer.h"

#include "zrnserve/note.h"

#include <algorithm>
#include <utility>

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

// What it says of itself and of what it announces.
constexpr gint32 serverRuns = 2;
constexpr gint32 serverFailed = 4;
constexpr gint32 groupCollides = 3;
constexpr gint32 groupFailed = 4;
constexpr const char* collisionError = "org.freedesktop.Avahi.CollisionError";

/// Of a name in DNS.
constexpr std::size_t longestName = 63;

std::string fullName(const Announcer::Service& service, const std::string& hostName)
{
    std::string name = service.name;
    const std::size_t place = name.find("%h");
    if (place != std::string::npos) {
        name.replace(place, 2, hostName);
    }
    return name.substr(0, longestName);
}

GVariant* argumentsOf(const Announcer::Service& service, const std::string& name)
{
    const std::string text = "path=" + service.path;
    GVariantBuilder texts;
    g_variant_builder_init(&texts, G_VARIANT_TYPE("aay"));
    g_variant_builder_add_value(
        &texts, g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1));
    return g_variant_new("(iiussssqaay)", anyInterface, anyProtocol, 0U, name.c_str(),
                         service.type.c_str(), "", "", static_cast<guint16>(service.port), &texts);
}

std::string firstText(GVariant* answer)
{
    g_autoptr(GVariant) text = g_variant_get_child_value(answer, 0);
    return g_variant_get_string(text, nullptr);
}

bool isCollision(const GError* error)
{
    g_autofree char* name = g_dbus_error_get_remote_error(error);
    return g_strcmp0(name, collisionError) == 0;
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
    announce({});
    if (m_bus) {
        g_dbus_connection_flush_sync(m_bus, nullptr, nullptr);
    }
    forgetDaemon();
    g_cancellable_cancel(m_ending);
    g_object_unref(m_ending);
}

void Announcer::announce(const std::vector<Service>& services)
{
    std::erase_if(m_announcements, [&](const Pointer& known) {
        known->isWanted = std::ranges::count(services, known->service) > 0;
        if (!known->isWanted && !known->group.empty()) {
            call(known->group, groupInterface, "Free", nullptr);
        }
        return !known->isWanted;
    });
    for (const Service& service : services) {
        const auto isKnown = [&](const Pointer& known) { return known->service == service; };
        if (std::ranges::none_of(m_announcements, isKnown)) {
            auto added = std::make_shared<Announcement>(Announcement{service, {}, {}});
            m_announcements.push_back(added);
            if (!m_hostName.empty()) {
                added->name = fullName(service, m_hostName);
                publish(added);
            }
        }
    }
}

void Announcer::onAppeared(GDBusConnection* bus, const char* /*name*/, const char* /*owner*/,
                           gpointer self)
{
    auto& announcer = *static_cast<Announcer*>(self);
    announcer.forgetDaemon();
    g_set_object(&announcer.m_bus, bus);
    announcer.m_states = g_dbus_connection_signal_subscribe(
        bus, daemonName, nullptr, "StateChanged", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        onState, self, nullptr);
    announcer.call("/", serverInterface, "GetState", nullptr, [&announcer](GVariant* answer) {
        gint32 state = 0;
        g_variant_get(answer, "(i)", &state);
        announcer.setServerState(state);
    });
}

void Announcer::onVanished(GDBusConnection* /*bus*/, const char* /*name*/, gpointer self)
{
    static_cast<Announcer*>(self)->forgetDaemon();
    note("no Avahi daemon runs: the cameras are announced when one does (avahi-daemon)");
}

void Announcer::forgetDaemon()
{
    if (m_states != 0) {
        g_dbus_connection_signal_unsubscribe(m_bus, m_states);
        m_states = 0;
    }
    g_clear_object(&m_bus);
    m_hostName.clear();
    for (const Pointer& known : m_announcements) {
        known->group.clear();
        known->isGroupAskedFor = false;
    }
}

void Announcer::onState(GDBusConnection* /*bus*/, const char* /*sender*/, const char* path,
                        const char* interface, const char* /*signal*/, GVariant* arguments,
                        gpointer self)
{
    if (!g_variant_is_of_type(arguments, G_VARIANT_TYPE("(is)"))) {
        return;
    }
    gint32 state = 0;
    g_variant_get(arguments, "(is)", &state, nullptr);
    auto& announcer = *static_cast<Announcer*>(self);
    if (g_str_equal(interface, serverInterface)) {
        announcer.setServerState(state);
    } else if (g_str_equal(interface, groupInterface)) {
        announcer.setGroupState(path, state);
    }
}

/// What is announced belongs to the name of the host: another name makes all of it void.
void Announcer::setServerState(gint32 state)
{
    if (state != serverRuns) {
        m_hostName.clear();
        for (const Pointer& known : m_announcements) {
            if (!known->group.empty()) {
                call(known->group, groupInterface, "Reset", nullptr);
            }
        }
        if (state == serverFailed) {
            note("not announced: the Avahi daemon has failed");
        }
        return;
    }
    call("/", serverInterface, "GetHostName", nullptr, [this](GVariant* answer) {
        m_hostName = firstText(answer);
        for (const Pointer& known : m_announcements) {
            known->name = fullName(known->service, m_hostName);
            publish(known);
        }
    });
}

void Announcer::setGroupState(const std::string& group, gint32 state)
{
    const auto known = std::ranges::find_if(
        m_announcements, [&](const Pointer& one) { return one->group == group; });
    if (known == m_announcements.end()) {
        return;
    }
    if (state == groupCollides) {
        rename(*known);
    } else if (state == groupFailed) {
        note("not announced: %s", (*known)->name.c_str());
    }
}

/// Each has a group of its own, so that it fails or is renamed alone.
void Announcer::publish(const Pointer& announcement)
{
    if (!announcement->isWanted) {
        return;
    }
    if (announcement->group.empty()) {
        if (!std::exchange(announcement->isGroupAskedFor, true)) {
            call("/", serverInterface, "EntryGroupNew", nullptr,
                 [this, announcement](GVariant* answer) {
                     announcement->group = firstText(answer);
                     if (!announcement->isWanted) {
                         call(announcement->group, groupInterface, "Free", nullptr);
                     }
                     publish(announcement);
                 });
        }
        return;
    }
    // The daemon answers in the order of the calls.
    call(announcement->group, groupInterface, "Reset", nullptr);
    call(
        announcement->group, groupInterface, "AddService",
        argumentsOf(announcement->service, announcement->name),
        [this, announcement](GVariant*) {
            call(announcement->group, groupInterface, "Commit", nullptr);
        },
        [this, announcement](GVariant*) { rename(announcement); });
}

/// The name is another one's.
void Announcer::rename(const Pointer& announcement)
{
    call("/", serverInterface, "GetAlternativeServiceName",
         g_variant_new("(s)", announcement->name.c_str()), [this, announcement](GVariant* answer) {
             const std::string name = firstText(answer);
             note("%s is announced as %s: another one has that name", announcement->name.c_str(),
                  name.c_str());
             announcement->name = name;
             publish(announcement);
         });
}

/// @param callback, @param onCollision may be empty; the log tells of other refusals
void Announcer::call(const std::string& path, const char* interface, const char* method,
                     GVariant* arguments, Callback callback, Callback onCollision)
{
    g_autoptr(GVariant) sunk = arguments ? g_variant_ref_sink(arguments) : nullptr;
    if (!m_bus || path.empty()) {
        return; // the daemon has gone, and its objects with it
    }
    struct Call {
        Callback callback;
        Callback onCollision;
    };
    g_dbus_connection_call(
        m_bus, daemonName, path.c_str(), interface, method, sunk, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, m_ending,
        [](GObject* bus, GAsyncResult* result, gpointer data) {
            const std::unique_ptr<Call> made(static_cast<Call*>(data));
            g_autoptr(GError) error = nullptr;
            g_autoptr(GVariant) answer =
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
            if (answer) {
                if (made->callback) {
                    made->callback(answer);
                }
            } else if (made->onCollision && isCollision(error)) {
                made->onCollision(nullptr);
            } else if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                note("not announced: %s", error->message);
            }
        },
        new Call{std::move(callback), std::move(onCollision)});
}

} // namespace zrnserve
