#include "one_device_bus.h"

#include "camera_ids.h"
#include "descriptor_tree.h"

#include <cstdlib>

namespace fuzz
{

OneDeviceBus::OneDeviceBus() = default;
OneDeviceBus::~OneDeviceBus() = default;

OneDeviceBus& OneDeviceBus::instance()
{
    static OneDeviceBus bus;
    return bus;
}

void OneDeviceBus::plug(std::span<const std::uint8_t> configuration, std::uint32_t seed)
{
    m_trees.clear();
    m_configuration.assign(configuration.begin(), configuration.end());
    m_noise.seed(seed);
}

libusb_config_descriptor* OneDeviceBus::getConfiguration()
{
    // As in libusb, each caller gets a copy of its own; the guards change theirs.
    return m_trees.emplace_back(std::make_unique<DescriptorTree>(m_configuration))->configuration();
}

int OneDeviceBus::controlTransfer(std::uint8_t requestType, std::span<std::uint8_t> data)
{
    constexpr std::uint8_t toHost = 0x80;
    const std::lock_guard locker(m_mutex);
    if (m_noise() % 8 == 0) {
        return LIBUSB_ERROR_PIPE;
    }
    if (requestType & toHost) {
        for (std::uint8_t& byte : data) {
            byte = static_cast<std::uint8_t>(m_noise() % 4 == 0 ? m_noise() : 0);
        }
    }
    return static_cast<int>(data.size());
}

void OneDeviceBus::waitForClose()
{
    std::unique_lock locker(m_mutex);
    m_closed.wait_for(locker, std::chrono::milliseconds(1));
}

void OneDeviceBus::noteClose()
{
    m_closed.notify_all();
}

} // namespace fuzz

// libusb as libuvc and the guards find it.

namespace
{

// libusb's objects are known by their addresses alone.
char objects[2];
auto* const theContext = reinterpret_cast<libusb_context*>(&objects[0]);
auto* const theDevice = reinterpret_cast<libusb_device*>(&objects[1]);

} // namespace

#define FUZZ_USB extern "C" __attribute__((visibility("default")))

FUZZ_USB const libusb_version* libusb_get_version()
{
    static const libusb_version version = {1, 0, 26, 11724, "", ""};
    return &version;
}

FUZZ_USB int libusb_init(libusb_context** context)
{
    *context = theContext;
    return LIBUSB_SUCCESS;
}

FUZZ_USB void libusb_exit(libusb_context*) {}

FUZZ_USB ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    *list = static_cast<libusb_device**>(std::calloc(2, sizeof(libusb_device*)));
    (*list)[0] = theDevice;
    return 1;
}

FUZZ_USB void libusb_free_device_list(libusb_device** list, int)
{
    std::free(list);
}

FUZZ_USB libusb_device* libusb_ref_device(libusb_device* device)
{
    return device;
}

FUZZ_USB void libusb_unref_device(libusb_device*) {}

FUZZ_USB std::uint8_t libusb_get_bus_number(libusb_device*)
{
    return 1;
}

FUZZ_USB std::uint8_t libusb_get_device_address(libusb_device*)
{
    return 1;
}

FUZZ_USB int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor)
{
    *descriptor = {};
    descriptor->idVendor = zrn::cameraVendorId;
    descriptor->idProduct = zrn::cameraProductId;
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_get_string_descriptor_ascii(libusb_device_handle*, std::uint8_t, unsigned char*,
                                                int)
{
    return LIBUSB_ERROR_PIPE;
}

FUZZ_USB int libusb_open(libusb_device*, libusb_device_handle** handle)
{
    // libuvc also opens a device for its strings alone, while another handle of it is open.
    *handle = reinterpret_cast<libusb_device_handle*>(new char);
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_claim_interface(libusb_device_handle*, int)
{
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_release_interface(libusb_device_handle*, int)
{
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_attach_kernel_driver(libusb_device_handle*, int)
{
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_detach_kernel_driver(libusb_device_handle*, int)
{
    return LIBUSB_ERROR_NOT_FOUND;
}

FUZZ_USB int libusb_get_config_descriptor(libusb_device*, std::uint8_t,
                                          libusb_config_descriptor** configuration)
{
    *configuration = fuzz::OneDeviceBus::instance().getConfiguration();
    return LIBUSB_SUCCESS;
}

FUZZ_USB void libusb_free_config_descriptor(libusb_config_descriptor*) {}

FUZZ_USB int libusb_control_transfer(libusb_device_handle*, std::uint8_t requestType, std::uint8_t,
                                     std::uint16_t, std::uint16_t, unsigned char* data,
                                     std::uint16_t length, unsigned)
{
    return fuzz::OneDeviceBus::instance().controlTransfer(requestType, {data, length});
}

FUZZ_USB int libusb_kernel_driver_active(libusb_device_handle*, int)
{
    return 0;
}

FUZZ_USB int libusb_set_interface_alt_setting(libusb_device_handle*, int, int)
{
    return LIBUSB_SUCCESS;
}

FUZZ_USB void libusb_close(libusb_device_handle* handle)
{
    delete reinterpret_cast<char*>(handle);
    fuzz::OneDeviceBus::instance().noteClose();
}

FUZZ_USB int libusb_handle_events_timeout_completed(libusb_context*, timeval*, int*)
{
    fuzz::OneDeviceBus::instance().waitForClose();
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_handle_events_completed(libusb_context*, int*)
{
    fuzz::OneDeviceBus::instance().waitForClose();
    return LIBUSB_SUCCESS;
}

FUZZ_USB int libusb_submit_transfer(libusb_transfer* transfer)
{
    return transfer->type == LIBUSB_TRANSFER_TYPE_INTERRUPT ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_MEM;
}

FUZZ_USB int libusb_cancel_transfer(libusb_transfer*)
{
    return LIBUSB_ERROR_NOT_FOUND;
}

FUZZ_USB void libusb_free_transfer(libusb_transfer* transfer)
{
    std::free(transfer);
}

FUZZ_USB libusb_transfer* libusb_alloc_transfer(int packets)
{
    const std::size_t size = sizeof(libusb_transfer) + static_cast<std::size_t>(packets) *
                                                           sizeof(libusb_iso_packet_descriptor);
    return static_cast<libusb_transfer*>(std::calloc(1, size));
}
