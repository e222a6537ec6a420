# What everything needs that contains the guards of plugin/usb_guards.

# libusb's header alone: the guards call the libusb that libuvc has found.
find_path(LIBUSB_INCLUDE_DIR libusb.h PATH_SUFFIXES libusb-1.0 REQUIRED)

# Leads the driver's calls that create something past the guards, and binds them when the library is loaded, so that
# its linkage table tells which libuvc it calls.
set(ZRN_GUARD_LINK_OPTIONS -Wl,-z,now)
foreach(function IN ITEMS uvc_init uvc_get_device_list uvc_get_device_descriptor uvc_open)
    list(APPEND ZRN_GUARD_LINK_OPTIONS -Wl,--wrap=${function})
endforeach()
