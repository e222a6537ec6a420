// Finding and opening chosen cameras only, so that a host that has lost one, or wants one, leaves
// the others alone: its own and those of other processes.

#include "camera_ids.h"
#include "served_devices.h"
#include "zrn_camera.h"

#include <QFile>
#include <QMutexLocker>

#include <mutex>
#include <shared_mutex>
#include <unistd.h>

namespace
{

BusPlace placeOf(uvc_device_t* device)
{
    return {uvc_get_bus_number(device), uvc_get_device_address(device)};
}

/// Nothing for a camera that is closed.
std::optional<BusPlace> placeOf(CameraNode& node)
{
    const std::shared_lock access(node.accessLock);
    return node.device ? std::optional(placeOf(node.device)) : std::nullopt;
}

bool isServed(uvc_device_t* device)
{
    uvc_device_descriptor_t* descriptor = nullptr;
    if (uvc_get_device_descriptor(device, &descriptor) != UVC_SUCCESS) {
        return false;
    }
    const bool result = matches(*descriptor, zrn::cameraVendorId, zrn::cameraProductId);
    uvc_free_device_descriptor(descriptor);
    return result;
}

} // namespace

int CZRNCamera::enumChosenDevices(const DeviceChoice& choice, QVariantMap& serials)
{
    const Operation operation;
    if (!operation) {
        return 0;
    }
    Operation::claimProcess();
    const QMutexLocker enumeration(&m_cameraEnumLock);
    const std::optional<QList<BusPlace>> present = placesOnBus();
    releaseNodes(takeNodesUnless([&](const BusPlace& place) {
        if (choice.closed.contains(place)) {
            return false;
        }
        // A list that was made without enough file descriptors lacks devices.
        return !present || (!choice.opened.contains(place) &&
                            (present->contains(place) || isKnownToKernel(place)));
    }));
    if (present) {
        for (const BusPlace& place : choice.opened) {
            if (present->contains(place)) {
                openChosenDevice(place);
            }
        }
    }

    serials.clear();
    {
        const std::shared_lock table(m_nodeTableLock);
        for (CameraNode* node : std::as_const(m_cameraNodeMap)) {
            if (const std::optional<BusPlace> place = node ? placeOf(*node) : std::nullopt) {
                serials[nameOf(*place)] = hostSerial(node->serial);
            }
        }
    }
    const std::lock_guard table(m_nodeTableLock);
    m_enumCount = static_cast<qint32>(m_cameraNodeMap.size());
    return m_enumCount;
}

void CZRNCamera::logMalformedPlace(const QString& text)
{
    logCritical() << " not a place on the bus:" << text;
}

std::optional<QList<BusPlace>> CZRNCamera::placesOnBus()
{
    uvc_context_t* scan = nullptr;
    uvc_device_t** devices = nullptr;
    if (!listDevices(scan, devices)) {
        if (scan) {
            uvc_exit(scan);
        }
        return std::nullopt;
    }
    reportMissingGuards();
    // Their descriptors are not asked for: libuvc would open the devices for that.
    QList<BusPlace> places;
    for (int position = 0; devices[position] != nullptr; ++position) {
        places.append(placeOf(devices[position]));
    }
    uvc_free_device_list(devices, unreferenceDevices);
    uvc_exit(scan);
    return places;
}

bool CZRNCamera::isKnownToKernel(const BusPlace& place)
{
    constexpr int usbDeviceMajor = 189;
    constexpr int devicesPerBus = 128;
    const QString entry = QStringLiteral("%1/%2:%3")
                              .arg(QLatin1String(m_kernelDeviceFolder))
                              .arg(usbDeviceMajor)
                              .arg((place.bus - 1) * devicesPerBus + place.address - 1);
    return ::access(QFile::encodeName(entry).constData(), F_OK) == 0;
}

void CZRNCamera::openChosenDevice(const BusPlace& place)
{
    CameraNode opened;
    if (!openDeviceAt(place, opened) || registerAlone(opened)) {
        return;
    }
    // It would take the place of a camera that somebody may be using.
    logCritical() << " another open camera has this serial:" << opened.serial
                  << ", not opened:" << nameOf(place);
    closeSpecifedDevice(&opened);
}

bool CZRNCamera::openDeviceAt(const BusPlace& place, CameraNode& node)
{
    uvc_context_t* context = nullptr;
    uvc_device_t** devices = nullptr;
    if (!listDevices(context, devices)) {
        if (context) {
            uvc_exit(context);
        }
        return false;
    }
    bool isOpened = false;
    for (int position = 0; devices[position] != nullptr; ++position) {
        if (placeOf(devices[position]) == place) {
            isOpened = isServed(devices[position]) &&
                       openListedDevice(devices[position], position, context, node);
            break;
        }
    }
    uvc_free_device_list(devices, unreferenceDevices);
    if (!isOpened) {
        uvc_exit(context);
    }
    return isOpened;
}

QList<CameraNode*> CZRNCamera::takeNodesUnless(const std::function<bool(const BusPlace&)>& keeps)
{
    // Who holds the enumeration lock is alone in changing the table.
    QStringList leaving;
    {
        const std::shared_lock table(m_nodeTableLock);
        for (auto entry = m_cameraNodeMap.cbegin(); entry != m_cameraNodeMap.cend(); ++entry) {
            const std::optional<BusPlace> place =
                entry.value() ? placeOf(*entry.value()) : std::nullopt;
            if (!place || !keeps(*place)) {
                leaving.append(entry.key());
            }
        }
    }
    QList<CameraNode*> nodes;
    const std::lock_guard table(m_nodeTableLock);
    for (const QString& serial : std::as_const(leaving)) {
        nodes.append(m_cameraNodeMap.take(serial));
    }
    m_enumCount = static_cast<qint32>(m_cameraNodeMap.size());
    return nodes;
}

bool CZRNCamera::registerAlone(const CameraNode& opened)
{
    CameraNode* closed = nullptr;
    {
        const std::lock_guard table(m_nodeTableLock);
        CameraNode* const present = m_cameraNodeMap.value(opened.serial);
        if (present && placeOf(*present)) {
            return false;
        }
        closed = m_cameraNodeMap.take(opened.serial);
    }
    releaseNodes({closed});
    registerNode(opened);
    return true;
}
