#pragma once

#include <functional>
#include <gio/gio.h>
#include <memory>
#include <string>
#include <vector>

namespace zrnserve
{

/// Tells the network of services by DNS-SD, through the Avahi daemon of the machine, whenever that
/// runs. A service whose name another machine has takes a similar one; the others keep theirs.
///
/// Thread safety: thread-bound, to that of the default main context.
class Announcer
{
public:
    struct Service {
        std::string name; ///< %h in it is the host's name, as the network knows it
        std::string type; ///< as _rtsp._tcp
        int port = 0;
        std::string path;

        bool operator==(const Service&) const = default;
    };

    Announcer();
    /// Withdraws what it told.
    ~Announcer();
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    /// These and no others from now on.
    void announce(const std::vector<Service>& services);

private:
    struct Announcement {
        Service service;
        std::string name;  ///< by which it is announced
        std::string group; ///< the daemon's object of it; empty: none
        bool isGroupAskedFor = false;
        bool isWanted = true;
    };
    using Pointer = std::shared_ptr<Announcement>;
    using Callback = std::function<void(GVariant* answer)>;

    static void onAppeared(GDBusConnection* bus, const char* name, const char* owner,
                           gpointer self);
    static void onVanished(GDBusConnection* bus, const char* name, gpointer self);
    static void onState(GDBusConnection* bus, const char* sender, const char* path,
                        const char* interface, const char* signal, GVariant* arguments,
                        gpointer self);
    void forgetDaemon();
    void setServerState(gint32 state);
    void setGroupState(const std::string& group, gint32 state);
    void publish(const Pointer& announcement);
    void rename(const Pointer& announcement);
    void call(const std::string& path, const char* interface, const char* method,
              GVariant* arguments, Callback callback = {}, Callback onCollision = {});

    guint m_watch = 0;
    guint m_states = 0; ///< the subscription to them; 0: none
    GCancellable* const m_ending;
    GDBusConnection* m_bus = nullptr; ///< null: no daemon runs
    std::string m_hostName;           ///< empty: the daemon has none at the moment
    std::vector<Pointer> m_announcements;
};

} // namespace zrnserve
