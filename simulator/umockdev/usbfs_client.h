#pragma once

#include "umockdev/client_memory.h"
#include "umockdev/urb.h"

#include <umockdev.h>

#include <deque>
#include <limits>
#include <list>
#include <memory>
#include <set>

namespace zrnsim
{

/// One open file of a device node, with what usbfs keeps for it.
///
/// A request block is in exactly one of the lists: `pending` until the device has answered,
/// `completed` until the client reaps it.
struct UsbfsClient {
    /// Result of a request that is answered later.
    static constexpr long deferred = std::numeric_limits<long>::min();

    UsbfsClient(UMockdevIoctlClient* client, pid_t pid)
        : handle(UMOCKDEV_IOCTL_CLIENT(g_object_ref(client)))
        , memory(pid)
    {
    }
    ~UsbfsClient() { g_object_unref(handle); }
    UsbfsClient(const UsbfsClient&) = delete;
    UsbfsClient& operator=(const UsbfsClient&) = delete;

    bool isConnected() const { return umockdev_ioctl_client_get_connected(handle) != FALSE; }

    /// Ends the ioctl that the client waits in, with its result or a negated errno.
    void answer(long result) const
    {
        umockdev_ioctl_client_complete(handle, result < 0 ? -1 : result,
                                       result < 0 ? static_cast<int>(-result) : 0);
    }

    UMockdevIoctlClient* handle;
    ClientMemory memory;
    std::list<Urb> pending;
    std::deque<Urb> completed;
    std::set<unsigned> claimed;
    std::uintptr_t reapArgument = 0; ///< of the blocking reap that it waits in, else 0
};

} // namespace zrnsim
