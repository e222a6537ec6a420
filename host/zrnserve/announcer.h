#pragma once

#include <gio/gio.h>
#include <string>
#include <vector>

namespace zrnserve
{

/// Tells the network of services by DNS-SD, through the Avahi daemon of the machine, whenever that
/// runs.
///
/// Thread safety: thread-bound, to that of the default main context.
class Announcer
{
public:
    struct Service {
        std::string name;
        std::string type; ///< as _rtsp._tcp
        int port = 0;
        std::string path;
    };

    Announcer();
    /// Withdraws what it told.
    ~Announcer();
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    /// These and no others from now on.
    void announce(std::vector<Service> services);

private:
    using Callback = void (*)(Announcer& self, GVariant* answer);

    static void onAppeared(GDBusConnection* bus, const char* name, const char* owner,
                           gpointer self);
    static void onVanished(GDBusConnection* bus, const char* name, gpointer self);
    void call(const char* path, const char* interface, const char* method, GVariant* arguments,
              Callback callback);
    void publish();

    guint m_watch = 0;
    GCancellable* const m_ending;
    GDBusConnection* m_bus = nullptr; ///< null: no daemon runs
    std::string m_group;              ///< the daemon's object of all services; empty: none yet
    std::vector<Service> m_services;
};

} // namespace zrnserve
