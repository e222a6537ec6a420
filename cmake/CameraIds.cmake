# The USB ids of the cameras and the udev rule that lets the user at the machine open them, and if asked for a group:
# services and who logs in over the network. They are written here alone: headers and the rule's file are made from them.
set(ZRN_USB_VENDOR_ID 0483)
set(ZRN_USB_PRODUCT_ID 5750)
# The number keeps the rule before those that act on its tag.
set(ZRN_UDEV_RULE_FILE 70-zrncamera.rules)
string(CONCAT ZRN_UDEV_RULE [[SUBSYSTEM=="usb", ]]
    "ATTR{idVendor}==\"${ZRN_USB_VENDOR_ID}\", ATTR{idProduct}==\"${ZRN_USB_PRODUCT_ID}\", " [[TAG+="uaccess"]])
set(ZRN_UDEV_GROUP "" CACHE STRING "Group that the udev rule lets open the cameras as well; empty for none")
set(ZRN_SERVICE_GROUP "${ZRN_UDEV_GROUP}")
if(NOT ZRN_SERVICE_GROUP)
    set(ZRN_SERVICE_GROUP plugdev)
endif()
set(ZRN_UDEV_GROUP_RULE "${ZRN_UDEV_RULE}, GROUP=\"${ZRN_SERVICE_GROUP}\", MODE=\"0660\"")
set(zrn_installed_udev_rule "${ZRN_UDEV_RULE}")
if(ZRN_UDEV_GROUP)
    set(zrn_installed_udev_rule "${ZRN_UDEV_GROUP_RULE}")
endif()

set(zrn_made "${CMAKE_BINARY_DIR}/made")
configure_file(cmake/camera_ids.h.in "${zrn_made}/camera_ids.h" @ONLY)
configure_file(cmake/udev_rule.h.in "${zrn_made}/udev_rule.h" @ONLY)
configure_file(packaging/udev/zrncamera.rules.in "${zrn_made}/${ZRN_UDEV_RULE_FILE}" @ONLY)

file(READ packaging/systemd/confinement.in zrn_unit_confinement)
string(CONFIGURE "${zrn_unit_confinement}" zrn_unit_confinement @ONLY)
foreach(unit zrnserve.service zrncam-record@.service)
    configure_file("packaging/systemd/${unit}.in" "${zrn_made}/${unit}" @ONLY)
endforeach()
configure_file(packaging/systemd/sysusers.conf.in "${zrn_made}/zrncamera.conf" @ONLY)

add_library(zrncamera_ids INTERFACE)
target_include_directories(zrncamera_ids INTERFACE "$<BUILD_INTERFACE:${zrn_made}>")
