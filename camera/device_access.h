#pragma once

#include "camera_node.h"

#include <libuvc/libuvc.h>

#include <utility>

/// Access to the libuvc handle of one node, for the length of a scope.
///
/// While an access lives, nobody closes the handle under it. It must therefore end with the
/// operation that made it, and its owner must not take another access or a camera's node lock.
class DeviceAccess
{
public:
    /// Without a node, tests false.
    explicit DeviceAccess(NodeReference node)
        : m_node(std::move(node))
    {
        if (m_node) {
            m_node->accessLock.lockForRead();
        }
    }
    ~DeviceAccess()
    {
        if (m_node) {
            m_node->accessLock.unlock();
        }
    }
    DeviceAccess(const DeviceAccess&) = delete;
    DeviceAccess& operator=(const DeviceAccess&) = delete;

    /// Whether there is a camera, open or closed.
    explicit operator bool() const { return static_cast<bool>(m_node); }

    /// Null when the camera has been closed by another enumeration or by another object.
    [[nodiscard]] uvc_device_handle_t* handle() const { return m_node->handle; }

    [[nodiscard]] QString serial() const { return m_node->serial; }

    /// Calls a libuvc function on the handle. A closed camera answers as an absent one would.
    template <typename... Parameters, typename... Arguments>
    uvc_error_t call(uvc_error_t (*function)(uvc_device_handle_t*, Parameters...),
                     Arguments&&... arguments) const
    {
        if (!m_node->handle) {
            return UVC_ERROR_NO_DEVICE;
        }
        return function(m_node->handle, std::forward<Arguments>(arguments)...);
    }

    /// The camera's video formats, or null.
    [[nodiscard]] const uvc_format_desc_t* formats() const
    {
        return m_node->handle ? uvc_get_format_descs(m_node->handle) : nullptr;
    }

private:
    NodeReference m_node;
};
