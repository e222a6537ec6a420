// A host that is linked to a fixed address and keeps addresses of functions of libusb and libuvc.
// In such a program they stand for entries of its own linkage table, which the dynamic linker then
// gives to every library that asks for the functions' addresses.

#include <libusb.h>
#include <libuvc/libuvc.h>

#include <array>

namespace
{

template <typename Function>
void* addressOf(Function* function)
{
    return reinterpret_cast<void*>(function);
}

} // namespace

/// Visible, so that nothing of it can be left out.
extern const std::array<void*, 8> functionsOfFixedAddress;
const std::array<void*, 8> functionsOfFixedAddress{
    addressOf(libusb_submit_transfer),
    addressOf(libusb_cancel_transfer),
    addressOf(libusb_control_transfer),
    addressOf(libusb_alloc_transfer),
    addressOf(libusb_free_transfer),
    addressOf(libusb_free_config_descriptor),
    addressOf(libusb_handle_events_timeout_completed),
    addressOf(uvc_open)};
