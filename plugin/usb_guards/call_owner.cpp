#include "call_owner.h"

#include "owned_objects.h"
#include "stream_transfers.h"
#include "usb_guards.h"
#include "visits.h"

#include <array>
#include <atomic>
#include <pthread.h>

namespace usbguards
{
namespace
{

// One test at a time.
std::mutex testMutex;
std::atomic<pthread_t> testingThread;
std::atomic<bool> isTesting = false;
std::atomic<bool> hasArrived = false;

template <auto Member>
void keep(OriginalUsb& functions, void* original)
{
    auto& function = functions.*Member;
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(original);
}

template <auto Member>
UsbFunction guarded(const char* name, decltype(OriginalUsb{}.*Member) guard)
{
    return {name, reinterpret_cast<void*>(guard), keep<Member>};
}

template <auto Member>
UsbFunction called(const char* name)
{
    return {name, nullptr, keep<Member>};
}

} // namespace

bool isDriverCalling()
{
    const Visit visit;
    return OwnedObjects::instance().isDriverCalling();
}

bool isDrivers(libusb_context* context)
{
    const Visit visit;
    return OwnedObjects::instance().owns(context);
}

bool isDrivers(libusb_device_handle* handle)
{
    const Visit visit;
    return OwnedObjects::instance().find(handle) != nullptr;
}

bool isDrivers(libusb_transfer* transfer)
{
    // libusb takes the handle out of a transfer that is in flight when the handle is closed.
    const Visit visit;
    return OwnedObjects::instance().find(transfer->dev_handle) != nullptr ||
           StreamTransfers::instance().knows(transfer);
}

void forget(libusb_context* context)
{
    const Visit visit;
    OwnedObjects::instance().forget(context);
}

bool noteArrival(libusb_transfer* transfer)
{
    const Visit visit;
    if (!transfer) {
        const bool isTest = isTesting && pthread_equal(testingThread, pthread_self());
        hasArrived = hasArrived || isTest;
        return isTest;
    }
    StreamTransfers::instance().forget(transfer);
    return false;
}

bool leadsToGuard(decltype(&libusb_free_transfer) freeTransfer)
{
    const std::lock_guard locker(testMutex);
    hasArrived = false;
    testingThread = pthread_self();
    isTesting = true;
    freeTransfer(nullptr);
    isTesting = false;
    return hasArrived;
}

std::span<const UsbFunction> usbFunctions()
{
    static const auto functions = std::to_array<UsbFunction>({
        guarded<&OriginalUsb::cancelTransfer>("libusb_cancel_transfer", guardCancelTransfer),
        guarded<&OriginalUsb::close>("libusb_close", guardClose),
        guarded<&OriginalUsb::controlTransfer>("libusb_control_transfer", guardControlTransfer),
        guarded<&OriginalUsb::exit>("libusb_exit", guardExit),
        guarded<&OriginalUsb::freeTransfer>("libusb_free_transfer", guardFreeTransfer),
        guarded<&OriginalUsb::getConfigDescriptor>("libusb_get_config_descriptor",
                                                   guardGetConfigDescriptor),
        guarded<&OriginalUsb::getStringDescriptor>("libusb_get_string_descriptor_ascii",
                                                   guardGetStringDescriptor),
        guarded<&OriginalUsb::handleEventsCompleted>("libusb_handle_events_completed",
                                                     guardHandleEventsCompleted),
        guarded<&OriginalUsb::init>("libusb_init", guardInit),
        guarded<&OriginalUsb::open>("libusb_open", guardOpen),
        guarded<&OriginalUsb::setInterfaceAltSetting>("libusb_set_interface_alt_setting",
                                                      guardSetInterfaceAltSetting),
        guarded<&OriginalUsb::submitTransfer>("libusb_submit_transfer", guardSubmitTransfer),
        called<&OriginalUsb::claimInterface>("libusb_claim_interface"),
        called<&OriginalUsb::freeConfigDescriptor>("libusb_free_config_descriptor"),
        called<&OriginalUsb::getVersion>("libusb_get_version"),
        called<&OriginalUsb::handleEventsTimeoutCompleted>(
            "libusb_handle_events_timeout_completed"),
        called<&OriginalUsb::kernelDriverActive>("libusb_kernel_driver_active"),
    });
    return functions;
}

} // namespace usbguards
