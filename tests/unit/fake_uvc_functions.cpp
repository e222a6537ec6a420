// The functions of libuvc that the driver may call, and no others.

#include "fake_uvc.h"

using fakeuvc::Bus;
using fakeuvc::Control;

namespace
{

template <typename Value>
uvc_error_t readControl(uvc_device_handle_t* handle, const char* function, Control control,
                        uvc_req_code request, Value* value)
{
    int wide = 0;
    const uvc_error_t result = Bus::instance().read(handle, function, control, request, wide);
    if (result == UVC_SUCCESS) {
        *value = static_cast<Value>(wide);
    }
    return result;
}

} // namespace

uvc_error_t uvc_init(uvc_context_t** context, libusb_context* usbContext)
{
    return Bus::instance().init(context, usbContext);
}

void uvc_exit(uvc_context_t* context)
{
    Bus::instance().exit(context);
}

uvc_error_t uvc_get_device_list(uvc_context_t* context, uvc_device_t*** list)
{
    return Bus::instance().deviceList(context, list);
}

void uvc_free_device_list(uvc_device_t** list, uint8_t unreference)
{
    Bus::instance().freeDeviceList(list, unreference != 0);
}

uvc_error_t uvc_get_device_descriptor(uvc_device_t* device, uvc_device_descriptor_t** descriptor)
{
    return Bus::instance().deviceDescriptor(device, descriptor);
}

void uvc_free_device_descriptor(uvc_device_descriptor_t* descriptor)
{
    Bus::instance().freeDeviceDescriptor(descriptor);
}

void uvc_ref_device(uvc_device_t* device)
{
    Bus::instance().addReference(device, 1);
}

void uvc_unref_device(uvc_device_t* device)
{
    Bus::instance().addReference(device, -1);
}

uint8_t uvc_get_bus_number(uvc_device_t* device)
{
    return Bus::instance().busNumber(device);
}

uint8_t uvc_get_device_address(uvc_device_t* device)
{
    return Bus::instance().deviceAddress(device);
}

uvc_error_t uvc_open(uvc_device_t* device, uvc_device_handle_t** handle)
{
    return Bus::instance().open(device, handle);
}

void uvc_close(uvc_device_handle_t* handle)
{
    Bus::instance().close(handle);
}

const uvc_format_desc_t* uvc_get_format_descs(uvc_device_handle_t* handle)
{
    return Bus::instance().formats(handle);
}

uvc_error_t uvc_get_stream_ctrl_format_size(uvc_device_handle_t* handle, uvc_stream_ctrl_t* control,
                                            uvc_frame_format format, int width, int height,
                                            int rate)
{
    return Bus::instance().negotiate(handle, control, format, width, height, rate);
}

uvc_error_t uvc_start_streaming(uvc_device_handle_t* handle, uvc_stream_ctrl_t* control,
                                uvc_frame_callback_t* callback, void* userPointer, uint8_t flags)
{
    return Bus::instance().startStreaming(handle, {callback, userPointer, control, flags});
}

void uvc_stop_streaming(uvc_device_handle_t* handle)
{
    Bus::instance().stopStreaming(handle);
}

uvc_error_t uvc_set_ae_mode(uvc_device_handle_t* handle, uint8_t mode)
{
    return Bus::instance().write(handle, "uvc_set_ae_mode", std::nullopt, mode);
}

uvc_error_t uvc_get_backlight_compensation(uvc_device_handle_t* handle, uint16_t* value,
                                           uvc_req_code request)
{
    return readControl(handle, "uvc_get_backlight_compensation", Control::BacklightCompensation,
                       request, value);
}

uvc_error_t uvc_get_brightness(uvc_device_handle_t* handle, int16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_brightness", Control::Brightness, request, value);
}

uvc_error_t uvc_set_brightness(uvc_device_handle_t* handle, int16_t value)
{
    return Bus::instance().write(handle, "uvc_set_brightness", Control::Brightness, value);
}

uvc_error_t uvc_get_contrast(uvc_device_handle_t* handle, uint16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_contrast", Control::Contrast, request, value);
}

uvc_error_t uvc_set_contrast(uvc_device_handle_t* handle, uint16_t value)
{
    return Bus::instance().write(handle, "uvc_set_contrast", Control::Contrast, value);
}

uvc_error_t uvc_get_gain(uvc_device_handle_t* handle, uint16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_gain", Control::Gain, request, value);
}

uvc_error_t uvc_set_gain(uvc_device_handle_t* handle, uint16_t value)
{
    return Bus::instance().write(handle, "uvc_set_gain", Control::Gain, value);
}

uvc_error_t uvc_get_gamma(uvc_device_handle_t* handle, uint16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_gamma", Control::Gamma, request, value);
}

uvc_error_t uvc_set_gamma(uvc_device_handle_t* handle, uint16_t value)
{
    return Bus::instance().write(handle, "uvc_set_gamma", Control::Gamma, value);
}

uvc_error_t uvc_get_hue(uvc_device_handle_t* handle, int16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_hue", Control::Hue, request, value);
}

uvc_error_t uvc_set_hue(uvc_device_handle_t* handle, int16_t value)
{
    return Bus::instance().write(handle, "uvc_set_hue", Control::Hue, value);
}

uvc_error_t uvc_get_saturation(uvc_device_handle_t* handle, uint16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_saturation", Control::Saturation, request, value);
}

uvc_error_t uvc_set_saturation(uvc_device_handle_t* handle, uint16_t value)
{
    return Bus::instance().write(handle, "uvc_set_saturation", Control::Saturation, value);
}

uvc_error_t uvc_get_sharpness(uvc_device_handle_t* handle, uint16_t* value, uvc_req_code request)
{
    return readControl(handle, "uvc_get_sharpness", Control::Sharpness, request, value);
}

uvc_error_t uvc_set_sharpness(uvc_device_handle_t* handle, uint16_t value)
{
    return Bus::instance().write(handle, "uvc_set_sharpness", Control::Sharpness, value);
}
