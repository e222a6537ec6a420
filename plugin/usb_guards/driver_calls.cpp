#include "driver_calls.h"

#include "configuration_repair.h"
#include "original_usb.h"
#include "owned_objects.h"
#include "stream_transfers.h"

#include <libuvc/libuvc.h>

#include <algorithm>
#include <array>
#include <sys/time.h>

namespace usbguards::forDriver
{
namespace
{

using std::chrono::milliseconds;

constexpr std::uint8_t classInterfaceOut = 0x21;

/// Whether libusb_set_interface_alt_setting spoils the handle of a departed device: up to 1.0.26 it
/// releases a lock that it does not hold.
bool spoilsDepartedHandles()
{
    constexpr std::array<unsigned, 3> repaired = {1, 0, 27};
    if (!originalUsb().getVersion) {
        return true;
    }
    const libusb_version& version = *originalUsb().getVersion();
    return std::array<unsigned, 3>{version.major, version.minor, version.micro} < repaired;
}

/// Whether libusb has heard that the device has gone. Claiming what is claimed already asks nobody.
bool isKnownDeparted(libusb_device_handle* handle, int interfaceNumber)
{
    return !originalUsb().claimInterface ||
           originalUsb().claimInterface(handle, interfaceNumber) == LIBUSB_ERROR_NO_DEVICE;
}

std::uint32_t littleEndian32(const unsigned char* data)
{
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8U | data[i];
    }
    return value;
}

/// Whether a control request commits the camera to payloads that libuvc cannot take: it divides by
/// their size when it chooses isochronous packets, and allocates a hundred of them.
bool commitsToUnusablePayloads(std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
                               const unsigned char* data, std::uint16_t length)
{
    constexpr std::uint16_t commitControl = 0x0200; // VS_COMMIT_CONTROL, in the high byte
    constexpr std::size_t payloadSizeOffset = 22;
    constexpr std::uint32_t largestPayload = 32U * 1024 * 1024;
    if (requestType != classInterfaceOut || request != UVC_SET_CUR || value != commitControl ||
        length < payloadSizeOffset + sizeof(std::uint32_t)) {
        return false;
    }
    const std::uint32_t payloadSize = littleEndian32(data + payloadSizeOffset);
    return payloadSize == 0 || payloadSize > largestPayload;
}

/// Whether a control request resets the camera, which takes its time: it writes the Contrast
/// control. The driver writes no other control of a unit or terminal that has this number.
bool isReset(std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
             std::uint16_t index)
{
    constexpr std::uint16_t contrast = UVC_PU_CONTRAST_CONTROL << 8U;
    const bool isToUnit = index >> 8U != 0;
    return requestType == classInterfaceOut && request == UVC_SET_CUR && value == contrast &&
           isToUnit;
}

/// A request of a handle, as its patience sees it.
class Request
{
public:
    explicit Request(libusb_device_handle* handle)
        : m_handle(OwnedObjects::instance().find(handle))
    {
        if (m_handle) {
            const std::lock_guard locker(m_handle->mutex);
            m_isBrief = m_handle->patience.isBrief(Patience::Clock::now());
        }
    }

    [[nodiscard]] bool isBrief() const { return m_isBrief; }

    void noteResult(int result)
    {
        if (!m_handle) {
            return;
        }
        const std::lock_guard locker(m_handle->mutex);
        if (result == LIBUSB_ERROR_TIMEOUT) {
            m_handle->patience.noteLapse(m_isBrief, Patience::Clock::now());
        } else {
            m_handle->patience.noteAnswer();
        }
    }

private:
    std::shared_ptr<OwnedHandle> m_handle; ///< null when it was closed in this moment
    bool m_isBrief = false;
};

} // namespace

bool hasDeparted(libusb_device_handle* handle, int interfaceNumber)
{
    if (originalUsb().kernelDriverActive) {
        return originalUsb().kernelDriverActive(handle, interfaceNumber) == LIBUSB_ERROR_NO_DEVICE;
    }
    // A host with a libusb inside shows the functions only that libuvc itself calls.
    constexpr std::uint8_t standardDeviceIn = 0x80;
    unsigned char status[2] = {};
    return originalUsb().controlTransfer &&
           originalUsb().controlTransfer(
               handle, standardDeviceIn, LIBUSB_REQUEST_GET_STATUS, 0, 0, status, sizeof status,
               static_cast<unsigned>(Patience::brief.count())) == LIBUSB_ERROR_NO_DEVICE;
}

int init(libusb_context** context)
{
    const int result = originalUsb().init(context);
    if (result == LIBUSB_SUCCESS && context) {
        OwnedObjects::instance().add(*context);
    }
    return result;
}

int open(libusb_device* device, libusb_device_handle** handle)
{
    const int result = originalUsb().open(device, handle);
    if (result == LIBUSB_SUCCESS) {
        OwnedObjects::instance().add(*handle);
    }
    return result;
}

void close(libusb_device_handle* handle)
{
    bool isSpoilt = false;
    if (const std::shared_ptr<OwnedHandle> record = OwnedObjects::instance().find(handle)) {
        const std::lock_guard locker(record->mutex);
        isSpoilt = record->isSpoilt;
    }
    // Before libusb can give the address to somebody else.
    OwnedObjects::instance().forget(handle);
    if (!isSpoilt) {
        originalUsb().close(handle);
    }
}

int getConfigDescriptor(libusb_device* device, std::uint8_t index,
                        libusb_config_descriptor** configuration)
{
    const int result = originalUsb().getConfigDescriptor(device, index, configuration);
    if (result == LIBUSB_SUCCESS && !repairConfiguration(**configuration)) {
        originalUsb().freeConfigDescriptor(*configuration);
        *configuration = nullptr;
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return result;
}

int getStringDescriptor(libusb_device_handle* handle, std::uint8_t index, unsigned char* data,
                        int length)
{
    // libusb waits a second for each string. The driver has no use for them.
    Request request(handle);
    if (request.isBrief()) {
        return LIBUSB_ERROR_TIMEOUT;
    }
    const int result = originalUsb().getStringDescriptor(handle, index, data, length);
    request.noteResult(result);
    return result;
}

int controlTransfer(libusb_device_handle* handle, std::uint8_t requestType, std::uint8_t request,
                    std::uint16_t value, std::uint16_t index, unsigned char* data,
                    std::uint16_t length, unsigned timeout)
{
    constexpr milliseconds resetLimit(5000);
    if (commitsToUnusablePayloads(requestType, request, value, data, length)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    Request patience(handle);
    const milliseconds limit = isReset(requestType, request, value, index) ? resetLimit
                               : patience.isBrief()                        ? Patience::brief
                                                                           : Patience::ordinary;
    const auto limitMs = static_cast<unsigned>(limit.count());
    // 0 means no limit to libusb.
    const int result =
        originalUsb().controlTransfer(handle, requestType, request, value, index, data, length,
                                      timeout == 0 ? limitMs : std::min(timeout, limitMs));
    patience.noteResult(result);
    return result;
}

int setInterfaceAltSetting(libusb_device_handle* handle, int interfaceNumber, int alternateSetting)
{
    static const bool isFaulty = spoilsDepartedHandles();
    // The kernel's answer takes its time, in which libusb may hear of the departure.
    if (isFaulty && (hasDeparted(handle, interfaceNumber) ||
                     (originalUsb().claimInterface && isKnownDeparted(handle, interfaceNumber)))) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int result =
        originalUsb().setInterfaceAltSetting(handle, interfaceNumber, alternateSetting);
    // It left in this very moment. What libusb has not heard of, it has not acted upon.
    if (isFaulty && result == LIBUSB_ERROR_NO_DEVICE && isKnownDeparted(handle, interfaceNumber)) {
        if (const std::shared_ptr<OwnedHandle> record = OwnedObjects::instance().find(handle)) {
            const std::lock_guard locker(record->mutex);
            record->isSpoilt = true;
        }
    }
    return result;
}

int submitTransfer(libusb_transfer* transfer)
{
    if (StreamTransfers::isStream(*transfer)) {
        return StreamTransfers::instance().submit(transfer);
    }
    if (transfer->type == LIBUSB_TRANSFER_TYPE_INTERRUPT &&
        transfer->status == LIBUSB_TRANSFER_STALL) {
        return LIBUSB_ERROR_PIPE; // a halted endpoint would refuse it at once, again and again
    }
    return originalUsb().submitTransfer(transfer);
}

int cancelTransfer(libusb_transfer* transfer)
{
    return StreamTransfers::isStream(*transfer) ? StreamTransfers::instance().cancel(transfer)
                                                : originalUsb().cancelTransfer(transfer);
}

/// libuvc's event thread looks after each event whether it shall end. The close of a spoilt handle
/// is no event, so the thread must look by itself.
int handleEventsCompleted(libusb_context* context, int* completed)
{
    if (!originalUsb().handleEventsTimeoutCompleted) {
        return originalUsb().handleEventsCompleted(context, completed);
    }
    timeval pause = {1, 0};
    return originalUsb().handleEventsTimeoutCompleted(context, &pause, completed);
}

} // namespace usbguards::forDriver
