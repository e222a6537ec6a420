#pragma once

#include "camera_node.h"
#include "operation.h"

#include <libuvc/libuvc.h>

#include <utility>

/// Access to the libuvc handle of one node, for the length of a scope.
///
/// While an access lives, nobody closes the handle under it. It must therefore end with the
/// operation that made it, and its owner must not take another access or a camera's node lock. A
/// node that is being closed is not waited for: it counts as closed.
class DeviceAccess
{
public:
    /// Without a node, tests false.
    explicit DeviceAccess(NodeReference node)
        : m_node(std::move(node))
    {
        if (m_node && m_node->closings == 0) {
            m_node->accessLock.lock_shared();
            m_isLocked = true;
        }
    }
    ~DeviceAccess()
    {
        if (m_isLocked) {
            m_node->accessLock.unlock_shared();
        }
    }
    DeviceAccess(const DeviceAccess&) = delete;
    DeviceAccess& operator=(const DeviceAccess&) = delete;

    /// Whether there is a camera, open or closed.
    explicit operator bool() const { return static_cast<bool>(m_node); }

    /// Null when the camera has been closed by another enumeration or by another object.
    [[nodiscard]] uvc_device_handle_t* handle() const
    {
        return m_isLocked ? m_node->handle : nullptr;
    }

    [[nodiscard]] QString serial() const { return m_node->serial; }

    /// Calls a libuvc function on the handle. A closed camera answers as an absent one would.
    template <typename... Parameters, typename... Arguments>
    uvc_error_t call(uvc_error_t (*function)(uvc_device_handle_t*, Parameters...),
                     Arguments&&... arguments) const
    {
        if (!handle() || !Operation::isAdmitted()) {
            return UVC_ERROR_NO_DEVICE;
        }
        const uvc_error_t result = function(handle(), std::forward<Arguments>(arguments)...);
        Operation::parkWhereAbandoned();
        return result;
    }

    /// The camera's video formats, or null.
    [[nodiscard]] const uvc_format_desc_t* formats() const
    {
        return handle() ? uvc_get_format_descs(handle()) : nullptr;
    }

private:
    NodeReference m_node;
    bool m_isLocked = false;
};

/// The right to close one node, for the length of a scope. It waits for the accesses that live, and
/// lets no other begin meanwhile.
class NodeClosing
{
public:
    explicit NodeClosing(CameraNode& node)
        : m_node(node)
    {
        ++m_node.closings;
        m_node.accessLock.lock();
    }
    ~NodeClosing()
    {
        m_node.accessLock.unlock();
        --m_node.closings;
    }
    NodeClosing(const NodeClosing&) = delete;
    NodeClosing& operator=(const NodeClosing&) = delete;

private:
    CameraNode& m_node;
};
