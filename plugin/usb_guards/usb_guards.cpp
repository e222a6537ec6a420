#include "usb_guards.h"

#include "abandonment.h"
#include "descriptor_repair.h"
#include "original_usb.h"
#include "stream_transfers.h"
#include "usb_handles.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <vector>

namespace usbguards
{
namespace
{

std::atomic<bool> calledByLibuvc = false;

/// Knows which threads are inside libusb's event handling. A key, because GCC 12's LeakSanitizer
/// crashes on a thread_local variable of a library that is loaded at run time. Threads of a camera
/// that was never closed may come here after the end, while the process exits.
class EventHandling
{
public:
    EventHandling()
        : m_isUsable(pthread_key_create(&m_key, nullptr) == 0)
    {
    }
    ~EventHandling()
    {
        if (m_isUsable.exchange(false)) {
            pthread_key_delete(m_key);
        }
    }
    EventHandling(const EventHandling&) = delete;
    EventHandling& operator=(const EventHandling&) = delete;

    bool isOnThisThread() const { return m_isUsable && pthread_getspecific(m_key) != nullptr; }
    void note(bool isOnThisThread) const
    {
        if (m_isUsable) {
            pthread_setspecific(m_key, isOnThisThread ? this : nullptr);
        }
    }

private:
    pthread_key_t m_key{};
    std::atomic<bool> m_isUsable;
};

EventHandling eventHandling;

/// Whether libusb_set_interface_alt_setting spoils the handle of a departed device: up to 1.0.26 it
/// releases a lock that it does not hold.
bool spoilsDepartedHandles()
{
    constexpr std::array<unsigned, 3> repaired = {1, 0, 27};
    const libusb_version& version = *originalUsb().getVersion();
    return std::array<unsigned, 3>{version.major, version.minor, version.micro} < repaired;
}

bool hasDeparted(libusb_device_handle* handle, int interfaceNumber)
{
    return originalUsb().kernelDriverActive(handle, interfaceNumber) == LIBUSB_ERROR_NO_DEVICE;
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
    constexpr std::uint8_t classInterfaceOut = 0x21;
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

/// libusb hands out a configuration as constant, but makes it afresh for each caller.
DescriptorBlocks blocksOf(const libusb_interface_descriptor& setting)
{
    const int size = std::max(setting.extra_length, 0);
    return {const_cast<unsigned char*>(setting.extra), setting.extra ? std::size_t(size) : 0};
}

bool isVideoInterface(const libusb_interface_descriptor& setting, int subclass)
{
    constexpr int videoClass = 14;
    return setting.bInterfaceClass == videoClass && setting.bInterfaceSubClass == subclass;
}

/// @return false when libuvc must not see the device at all.
bool repairConfiguration(libusb_config_descriptor& configuration)
{
    constexpr int controlSubclass = 1;
    constexpr int streamingSubclass = 2;

    // libuvc takes the numbers in the control header for positions, and the streaming interface's
    // own number as well.
    std::vector<std::uint8_t> streamingInterfaces;
    for (std::uint8_t i = 0; i < configuration.bNumInterfaces; ++i) {
        const libusb_interface& interface = configuration.interface[i];
        if (interface.num_altsetting > 0 &&
            isVideoInterface(interface.altsetting[0], streamingSubclass) &&
            interface.altsetting[0].bInterfaceNumber < configuration.bNumInterfaces) {
            streamingInterfaces.push_back(i);
        }
    }
    bool isVideo = false;
    bool isComplete = false;
    for (std::uint8_t i = 0; i < configuration.bNumInterfaces; ++i) {
        const libusb_interface& interface = configuration.interface[i];
        for (int j = 0; j < interface.num_altsetting; ++j) {
            auto& setting = const_cast<libusb_interface_descriptor&>(interface.altsetting[j]);
            const DescriptorBlocks blocks = blocksOf(setting);
            if (isVideoInterface(setting, controlSubclass)) {
                const std::size_t sound = repairControlBlocks(blocks, streamingInterfaces);
                setting.extra_length = static_cast<int>(sound);
                // libuvc reads the first setting of the first control interface.
                if (!isVideo) {
                    isComplete = areComplete(blocks.first(sound));
                }
                isVideo = true;
            } else if (isVideoInterface(setting, streamingSubclass)) {
                setting.extra_length = static_cast<int>(repairStreamingBlocks(blocks));
            }
        }
    }
    return !isVideo || isComplete;
}

/// Keeps this library loaded for good: libuvc's threads of an abandoned camera go on, through the
/// guards.
void stayLoaded()
{
    Dl_info self{};
    if (dladdr(&calledByLibuvc, &self) != 0) {
        dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

/// Whether both addresses lie in the same library.
bool isSameLibrary(const void* one, const void* other)
{
    Dl_info first{};
    Dl_info second{};
    return dladdr(one, &first) != 0 && dladdr(other, &second) != 0 &&
           first.dli_fbase == second.dli_fbase;
}

/// The function behind libuvc's handles, which nothing else in the driver needs: of the libuvc that
/// opens the cameras, or null.
auto usbHandleGetter()
{
    void* const getter = dlsym(RTLD_DEFAULT, "uvc_get_libusb_handle");
    const bool isOurs = isSameLibrary(getter, dlsym(RTLD_DEFAULT, "uvc_open"));
    return isOurs ? reinterpret_cast<decltype(&uvc_get_libusb_handle)>(getter) : nullptr;
}

/// Without the guards, libuvc can neither stop nor close a camera that has left the bus.
bool isBeyondClosing(uvc_device_handle_t* handle)
{
    static const auto usbHandleOf = usbHandleGetter();
    if (inEffect() || !usbHandleOf || !originalUsb().kernelDriverActive) {
        return false;
    }
    auto* const usbHandle = reinterpret_cast<libusb_device_handle*>(usbHandleOf(handle));
    if (!usbHandle || !hasDeparted(usbHandle, 0)) {
        return false;
    }
    stayLoaded();
    return true;
}

[[maybe_unused]] const bool isAbandonmentSet = [] {
    setAbandonment({isBeyondClosing, stayLoaded});
    return true;
}();

} // namespace

bool inEffect()
{
    return calledByLibuvc.load();
}

#define ZRN_GUARD extern "C" __attribute__((visibility("default")))

ZRN_GUARD int libusb_get_config_descriptor(libusb_device* device, std::uint8_t index,
                                           libusb_config_descriptor** configuration)
{
    calledByLibuvc.store(true);
    const int result = originalUsb().getConfigDescriptor(device, index, configuration);
    if (result == LIBUSB_SUCCESS && !repairConfiguration(**configuration)) {
        originalUsb().freeConfigDescriptor(*configuration);
        *configuration = nullptr;
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return result;
}

ZRN_GUARD int libusb_control_transfer(libusb_device_handle* handle, std::uint8_t requestType,
                                      std::uint8_t request, std::uint16_t value,
                                      std::uint16_t index, unsigned char* data,
                                      std::uint16_t length, unsigned int timeout)
{
    if (commitsToUnusablePayloads(requestType, request, value, data, length)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    // 0 means no limit to libusb.
    const unsigned patience = UsbHandles::instance().patience(handle);
    const unsigned limit = timeout == 0 ? patience : std::min(timeout, patience);
    const int result = originalUsb().controlTransfer(handle, requestType, request, value, index,
                                                     data, length, limit);
    UsbHandles::instance().noteAnswer(handle, result != LIBUSB_ERROR_TIMEOUT);
    return result;
}

ZRN_GUARD int libusb_set_interface_alt_setting(libusb_device_handle* handle, int interfaceNumber,
                                               int alternateSetting)
{
    static const bool isFaulty = spoilsDepartedHandles();
    if (isFaulty && hasDeparted(handle, interfaceNumber)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int result =
        originalUsb().setInterfaceAltSetting(handle, interfaceNumber, alternateSetting);
    if (isFaulty && result == LIBUSB_ERROR_NO_DEVICE) {
        UsbHandles::instance().noteSpoilt(handle); // it left in this very moment
    }
    return result;
}

ZRN_GUARD void libusb_close(libusb_device_handle* handle)
{
    const bool isSpoilt = UsbHandles::instance().isSpoilt(handle);
    UsbHandles::instance().forget(handle);
    if (!isSpoilt) {
        originalUsb().close(handle);
    }
}

ZRN_GUARD int libusb_submit_transfer(libusb_transfer* transfer)
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

ZRN_GUARD int libusb_cancel_transfer(libusb_transfer* transfer)
{
    // libusb's own calls come through the guards too. While it handles events it cancels what has
    // timed out, which libuvc then submits again.
    if (eventHandling.isOnThisThread() || !StreamTransfers::isStream(*transfer)) {
        return originalUsb().cancelTransfer(transfer);
    }
    return StreamTransfers::instance().cancel(transfer);
}

/// Stacks show this name, so that what is known of libusb's own function does not count for this.
extern "C" void zrnFreeTransfer(libusb_transfer* transfer)
{
    StreamTransfers::instance().forget(transfer);
    originalUsb().freeTransfer(transfer);
}
ZRN_GUARD void libusb_free_transfer(libusb_transfer* transfer)
    __attribute__((alias("zrnFreeTransfer")));

/// libuvc's event thread looks after each event whether it shall end. The close of a spoilt handle
/// is no event, so the thread must look by itself.
ZRN_GUARD int libusb_handle_events_completed(libusb_context* context, int* completed)
{
    timeval pause = {1, 0};
    const bool isNested = eventHandling.isOnThisThread();
    eventHandling.note(true);
    const int result = originalUsb().handleEventsTimeoutCompleted(context, &pause, completed);
    eventHandling.note(isNested);
    return result;
}

} // namespace usbguards
