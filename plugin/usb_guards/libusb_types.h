#pragma once

#include <cstdint>

/// The part of libusb 1.0's binary interface that the guards use. Declared here because libuvc's
/// development package does not bring libusb's headers; a test compares it with them.
namespace usbguards
{

struct libusb_context;
struct libusb_device;
struct libusb_device_handle;
struct libusb_transfer;

enum libusb_error : int {
    LIBUSB_SUCCESS = 0,
    LIBUSB_ERROR_INVALID_PARAM = -2,
    LIBUSB_ERROR_NO_DEVICE = -4,
    LIBUSB_ERROR_NOT_FOUND = -5,
    LIBUSB_ERROR_TIMEOUT = -7,
    LIBUSB_ERROR_PIPE = -9,
    LIBUSB_ERROR_INTERRUPTED = -10,
    LIBUSB_ERROR_NO_MEM = -11,
    LIBUSB_ERROR_OTHER = -99,
};

enum libusb_transfer_type : std::uint8_t {
    LIBUSB_TRANSFER_TYPE_ISOCHRONOUS = 1,
    LIBUSB_TRANSFER_TYPE_BULK = 2,
    LIBUSB_TRANSFER_TYPE_INTERRUPT = 3,
};

enum libusb_transfer_status : unsigned {
    LIBUSB_TRANSFER_COMPLETED = 0,
    LIBUSB_TRANSFER_ERROR = 1,
    LIBUSB_TRANSFER_TIMED_OUT = 2,
    LIBUSB_TRANSFER_CANCELLED = 3,
    LIBUSB_TRANSFER_STALL = 4,
    LIBUSB_TRANSFER_NO_DEVICE = 5,
};

struct libusb_version {
    std::uint16_t major;
    std::uint16_t minor;
    std::uint16_t micro;
    std::uint16_t nano;
    const char* rc;
    const char* describe;
};

struct libusb_interface_descriptor {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bInterfaceNumber;
    std::uint8_t bAlternateSetting;
    std::uint8_t bNumEndpoints;
    std::uint8_t bInterfaceClass;
    std::uint8_t bInterfaceSubClass;
    std::uint8_t bInterfaceProtocol;
    std::uint8_t iInterface;
    const void* endpoint;
    const unsigned char* extra;
    int extra_length;
};

struct libusb_interface {
    const libusb_interface_descriptor* altsetting;
    int num_altsetting;
};

struct libusb_config_descriptor {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint16_t wTotalLength;
    std::uint8_t bNumInterfaces;
    std::uint8_t bConfigurationValue;
    std::uint8_t iConfiguration;
    std::uint8_t bmAttributes;
    std::uint8_t MaxPower;
    const libusb_interface* interface;
    const unsigned char* extra;
    int extra_length;
};

struct libusb_iso_packet_descriptor {
    unsigned length;
    unsigned actual_length;
    libusb_transfer_status status;
};

using libusb_transfer_cb_fn = void (*)(libusb_transfer*);

struct libusb_transfer {
    libusb_device_handle* dev_handle;
    std::uint8_t flags;
    unsigned char endpoint;
    unsigned char type;
    unsigned timeout;
    libusb_transfer_status status;
    int length;
    int actual_length;
    libusb_transfer_cb_fn callback;
    void* user_data;
    unsigned char* buffer;
    int num_iso_packets; ///< descriptors of the packets follow
};

/// The first of a transfer's packet descriptors.
inline libusb_iso_packet_descriptor* packetsOf(libusb_transfer& transfer)
{
    return reinterpret_cast<libusb_iso_packet_descriptor*>(&transfer.num_iso_packets + 1);
}

} // namespace usbguards
