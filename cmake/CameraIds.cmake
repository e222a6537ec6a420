# The USB ids of the cameras and the udev rule that lets the user at the machine open them. They are written here
# alone: headers and the rule's file are made from them.
set(ZRN_USB_VENDOR_ID 0483)
set(ZRN_USB_PRODUCT_ID 5750)
# The number keeps the rule before those that act on its tag.
set(ZRN_UDEV_RULE_FILE 70-zrncamera.rules)
string(CONCAT ZRN_UDEV_RULE [[SUBSYSTEM=="usb", ]]
    "ATTR{idVendor}==\"${ZRN_USB_VENDOR_ID}\", ATTR{idProduct}==\"${ZRN_USB_PRODUCT_ID}\", " [[TAG+="uaccess"]])

set(zrn_made "${CMAKE_BINARY_DIR}/made")
configure_file(cmake/camera_ids.h.in "${zrn_made}/camera_ids.h" @ONLY)
configure_file(cmake/udev_rule.h.in "${zrn_made}/udev_rule.h" @ONLY)
configure_file(packaging/udev/zrncamera.rules.in "${zrn_made}/${ZRN_UDEV_RULE_FILE}" @ONLY)

add_library(zrncamera_ids INTERFACE)
target_include_directories(zrncamera_ids INTERFACE "$<BUILD_INTERFACE:${zrn_made}>")
