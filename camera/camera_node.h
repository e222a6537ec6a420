#pragma once

#include <QMutex>
#include <QString>
#include <libuvc/libuvc.h>

#include <atomic>
#include <shared_mutex>
#include <utility>

/// One enumerated camera.
///
/// Ownership: CZRNCamera's node table owns the record, the record owns its libuvc objects. Every
/// node has a libuvc context of its own, because a context does not survive closing its last
/// device.
///
/// Locking: `accessLock` is held for reading during the libuvc calls of one operation and the
/// pauses between them, and for writing while the three libuvc objects are replaced or closed.
/// `streamMutex` is held while libuvc starts or stops the node's stream, because libuvc keeps a
/// device's streams in a list without a lock, and two camera objects may share the node.
struct CameraNode {
    QString serial; ///< decimal serial key, the node's in the table; never changes there
    uvc_device_t* device = nullptr;        ///< referenced
    uvc_device_handle_t* handle = nullptr; ///< null once the camera has been closed
    uvc_context_t* context = nullptr;      ///< of this node alone
    bool isOpen = false; ///< filled from an open device, and not disconnected since

    std::shared_mutex accessLock;
    std::atomic<int> closings = 0; ///< threads that close it: there is no access any more
    QMutex streamMutex;
    std::atomic<int> references = 1; ///< the table's own, and one for each NodeReference
};

/// Keeps a node's record alive, for the table of one factory may be released while a camera of
/// another factory still points at the record.
class NodeReference
{
public:
    NodeReference() = default;
    explicit NodeReference(CameraNode* node)
        : m_node(node)
    {
        if (m_node) {
            ++m_node->references;
        }
    }
    ~NodeReference() { release(m_node); }
    NodeReference(const NodeReference& other)
        : NodeReference(other.m_node)
    {
    }
    NodeReference(NodeReference&& other) noexcept
        : m_node(other.take())
    {
    }
    NodeReference& operator=(NodeReference other) noexcept
    {
        std::swap(m_node, other.m_node);
        return *this;
    }

    explicit operator bool() const { return m_node != nullptr; }
    CameraNode* operator->() const { return m_node; }
    [[nodiscard]] CameraNode* get() const { return m_node; }

    /// Gives the reference to whoever stores the pointer, to be given back with release().
    CameraNode* take() { return std::exchange(m_node, nullptr); }

    /// Gives back one reference to @p node, which may be null.
    static void release(CameraNode* node);

private:
    CameraNode* m_node = nullptr;
};
