// The binary interface as the guards declare it, against libusb's own header.

#include "usb_guards/libusb_types.h"

#include <libusb.h>

#include <cstddef>

namespace
{

#define SAME_FIELD(type, field)                                                                    \
    static_assert(offsetof(usbguards::type, field) == offsetof(::type, field) &&                   \
                  sizeof(usbguards::type::field) == sizeof(::type::field))
#define SAME_VALUE(name) static_assert(int{usbguards::name} == int{::name})

SAME_FIELD(libusb_transfer, dev_handle);
SAME_FIELD(libusb_transfer, endpoint);
SAME_FIELD(libusb_transfer, type);
SAME_FIELD(libusb_transfer, timeout);
SAME_FIELD(libusb_transfer, status);
SAME_FIELD(libusb_transfer, length);
SAME_FIELD(libusb_transfer, actual_length);
SAME_FIELD(libusb_transfer, callback);
SAME_FIELD(libusb_transfer, user_data);
SAME_FIELD(libusb_transfer, buffer);
SAME_FIELD(libusb_transfer, num_iso_packets);
static_assert(offsetof(usbguards::libusb_transfer, num_iso_packets) + sizeof(int) ==
              offsetof(::libusb_transfer, iso_packet_desc));

SAME_FIELD(libusb_iso_packet_descriptor, length);
SAME_FIELD(libusb_iso_packet_descriptor, actual_length);
SAME_FIELD(libusb_iso_packet_descriptor, status);
static_assert(sizeof(usbguards::libusb_iso_packet_descriptor) ==
              sizeof(::libusb_iso_packet_descriptor));

SAME_FIELD(libusb_interface_descriptor, bInterfaceNumber);
SAME_FIELD(libusb_interface_descriptor, bInterfaceClass);
SAME_FIELD(libusb_interface_descriptor, bInterfaceSubClass);
SAME_FIELD(libusb_interface_descriptor, extra);
SAME_FIELD(libusb_interface_descriptor, extra_length);
static_assert(sizeof(usbguards::libusb_interface_descriptor) ==
              sizeof(::libusb_interface_descriptor));

SAME_FIELD(libusb_interface, altsetting);
SAME_FIELD(libusb_interface, num_altsetting);
static_assert(sizeof(usbguards::libusb_interface) == sizeof(::libusb_interface));
SAME_FIELD(libusb_config_descriptor, bNumInterfaces);
SAME_FIELD(libusb_config_descriptor, interface);

SAME_FIELD(libusb_version, major);
SAME_FIELD(libusb_version, minor);
SAME_FIELD(libusb_version, micro);

SAME_VALUE(LIBUSB_SUCCESS);
SAME_VALUE(LIBUSB_ERROR_INVALID_PARAM);
SAME_VALUE(LIBUSB_ERROR_NO_DEVICE);
SAME_VALUE(LIBUSB_ERROR_NOT_FOUND);
SAME_VALUE(LIBUSB_ERROR_TIMEOUT);
SAME_VALUE(LIBUSB_ERROR_PIPE);
SAME_VALUE(LIBUSB_ERROR_INTERRUPTED);
SAME_VALUE(LIBUSB_ERROR_NO_MEM);
SAME_VALUE(LIBUSB_ERROR_OTHER);
SAME_VALUE(LIBUSB_TRANSFER_TYPE_ISOCHRONOUS);
SAME_VALUE(LIBUSB_TRANSFER_TYPE_BULK);
SAME_VALUE(LIBUSB_TRANSFER_TYPE_INTERRUPT);
SAME_VALUE(LIBUSB_TRANSFER_COMPLETED);
SAME_VALUE(LIBUSB_TRANSFER_ERROR);
SAME_VALUE(LIBUSB_TRANSFER_TIMED_OUT);
SAME_VALUE(LIBUSB_TRANSFER_CANCELLED);
SAME_VALUE(LIBUSB_TRANSFER_STALL);
SAME_VALUE(LIBUSB_TRANSFER_NO_DEVICE);

} // namespace
