#include "abandonment.h"
#include "atomic_field.h"
#include "camera_ids.h"
#include "guard_status.h"
#include "served_devices.h"
#include "zrn_camera.h"

#include <QMutexLocker>

#include <array>
#include <memory>
#include <mutex>

bool CZRNCamera::initizlizeZRNCameraLibrary()
{
    return true;
}

QString CZRNCamera::readSerial(uvc_device_handle_t* handle)
{
    // Where the bits of each request's answer stand in the serial.
    struct Word {
        uvc_req_code request;
        unsigned shift;
    };
    constexpr std::array<Word, 4> words = {
        {{UVC_GET_CUR, 0}, {UVC_GET_MAX, 32}, {UVC_GET_MIN, 16}, {UVC_GET_DEF, 48}}};

    quint64 serial = 0;
    for (const Word& word : words) {
        uint16_t value = 0;
        uvc_get_backlight_compensation(handle, &value, word.request);
        serial |= static_cast<quint64>(value) << word.shift;
    }
    return QString::number(serial);
}

bool CZRNCamera::listDevices(uvc_context_t*& context, uvc_device_t**& devices)
{
    context = nullptr;
    uvc_error_t result = uvc_init(&context, nullptr);
    if (result != UVC_SUCCESS) {
        context = nullptr;
        logCritical() << "uvc_init failed error:" << result;
        return false;
    }
    result = uvc_get_device_list(context, &devices);
    if (result != UVC_SUCCESS) {
        logCritical() << "uvc_get_device_list failed error:" << result;
        return false;
    }
    return true;
}

bool CZRNCamera::openSpecifedDevice(int vendorId, int productId, int index, CameraNode& node)
{
    const Operation operation;
    if (!operation) {
        return false;
    }
    uvc_context_t* context = nullptr;
    uvc_device_t** devices = nullptr;
    if (!listDevices(context, devices)) {
        if (context) { // it stays
            keepLibraryLoaded();
        }
        return false;
    }

    int matched = 0;
    for (int position = 0; devices[position] != nullptr; ++position) {
        uvc_device_descriptor_t* descriptor = nullptr;
        if (uvc_get_device_descriptor(devices[position], &descriptor) != UVC_SUCCESS) {
            continue;
        }
        if (matches(*descriptor, vendorId, productId)) {
            if (matched == index) {
                if (openListedDevice(devices[position], position, context, node)) {
                    uvc_free_device_list(devices, unreferenceDevices);
                    return true;
                }
            }
            ++matched;
        }
        uvc_free_device_descriptor(descriptor);
    }

    uvc_free_device_list(devices, unreferenceDevices);
    uvc_exit(context);
    return false;
}

bool CZRNCamera::openListedDevice(uvc_device_t* device, int position, uvc_context_t* context,
                                  CameraNode& node)
{
    uvc_device_handle_t* handle = nullptr;
    const uvc_error_t result = uvc_open(device, &handle);
    if (result != UVC_SUCCESS) {
        logDebug() << " open device num:" << position << " failed, errCode :" << result;
        return false;
    }
    logDebug() << " open device num:" << position << ",handle:" << static_cast<void*>(handle);
    node.serial = readSerial(handle);
    node.handle = handle;
    node.context = context;
    uvc_ref_device(device);
    node.device = device;
    return true;
}

void CZRNCamera::closeSpecifedDevice(CameraNode* node)
{
    const Operation operation;
    if (!operation) {
        return;
    }
    bool closed = false;
    {
        const NodeClosing closing(*node);
        closed = closeNode(*node);
    }
    if (!closed) {
        logAbandoned(*node);
    }
}

bool CZRNCamera::closeNode(CameraNode& node)
{
    const bool abandoned = node.handle && mustAbandon(node.handle);
    if (!abandoned) {
        if (node.handle) {
            uvc_close(node.handle);
        }
        if (node.device) {
            uvc_unref_device(node.device);
        }
        if (node.context) {
            uvc_exit(node.context);
        }
    }
    node.handle = nullptr;
    node.device = nullptr;
    node.context = nullptr;
    return !abandoned;
}

void CZRNCamera::logAbandoned(const CameraNode& node)
{
    logCritical() << " camera is gone and cannot be closed, serial:" << node.serial;
}

void CZRNCamera::reportMissingGuards()
{
    static bool isReported = false; // under the enumeration lock
    const GuardStatus guards = guardStatus();
    if (!guards.areSafe && !isReported) {
        isReported = true;
        logCritical() << " libuvc's faults are not guarded against:" << guards.text.c_str();
    }
}

int CZRNCamera::enumZRNCameraDevices()
{
    const Operation operation;
    if (!operation) {
        return 0;
    }
    Operation::claimProcess();
    const QMutexLocker enumeration(&m_cameraEnumLock);

    uvc_context_t* scan = nullptr;
    uvc_error_t result = uvc_init(&scan, nullptr);
    logDebug() << "uvc_init ret:" << result;
    if (result != UVC_SUCCESS) {
        const std::lock_guard table(m_nodeTableLock);
        m_enumCount = 0;
        return 0;
    }
    reportMissingGuards();

    // A record stays, closed, for as long as a connected camera points at it.
    releaseNodes(takeNodes());

    uvc_device_t** devices = nullptr;
    result = uvc_get_device_list(scan, &devices);
    if (result != UVC_SUCCESS) {
        keepLibraryLoaded(); // the scan context stays
        logCritical() << "uvc_get_device_list failed error:" << result;
        return 0;
    }

    int count = 0;
    for (int position = 0; devices[position] != nullptr; ++position) {
        uvc_device_descriptor_t* descriptor = nullptr;
        if (uvc_get_device_descriptor(devices[position], &descriptor) != UVC_SUCCESS) {
            continue;
        }
        CameraNode opened;
        if (matches(*descriptor, zrn::cameraVendorId, zrn::cameraProductId) &&
            openSpecifedDevice(zrn::cameraVendorId, zrn::cameraProductId, count, opened)) {
            registerNode(opened);
            ++count;
        }
        uvc_free_device_descriptor(descriptor);
    }

    uvc_free_device_list(devices, unreferenceDevices);
    uvc_exit(scan);

    const std::lock_guard table(m_nodeTableLock);
    m_enumCount = count;
    return count;
}

bool CZRNCamera::releaseZRNCameraLibrary()
{
    const Operation operation;
    if (!operation) {
        return true;
    }
    QList<CameraNode*> nodes;
    {
        const QMutexLocker enumeration(&m_cameraEnumLock);
        nodes = takeNodes();
    }
    releaseNodes(nodes);
    return true;
}

QList<CameraNode*> CZRNCamera::takeNodes()
{
    const std::lock_guard table(m_nodeTableLock);
    const QList<CameraNode*> nodes = m_cameraNodeMap.values();
    m_cameraNodeMap.clear();
    return nodes;
}

void CZRNCamera::releaseNodes(const QList<CameraNode*>& nodes)
{
    for (CameraNode* node : nodes) {
        if (node) {
            closeSpecifedDevice(node);
            NodeReference::release(node);
        }
    }
}

void CZRNCamera::registerNode(const CameraNode& opened)
{
    const std::lock_guard table(m_nodeTableLock);
    CameraNode*& node = m_cameraNodeMap[opened.serial];
    if (!node) {
        node = new CameraNode;
        node->serial = opened.serial;
    }
    // A second camera with the same serial takes the place of the first, which stays open.
    const std::lock_guard access(node->accessLock);
    if (node->handle) {
        keepLibraryLoaded();
    }
    node->device = opened.device;
    node->handle = opened.handle;
    node->context = opened.context;
    shared(node->isOpen).store(true);
}
