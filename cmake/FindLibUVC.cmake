# Finds libuvc: the target LibUVC::LibUVC.
#
# Its own package files are of no use here: the pkg-config file demands libusb's development package, which
# neither the headers nor linking needs, and the CMake files name a target of libuvc's own build tree.

find_path(LibUVC_INCLUDE_DIR libuvc/libuvc.h)
find_library(LibUVC_LIBRARY uvc)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibUVC
    REQUIRED_VARS LibUVC_LIBRARY LibUVC_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "Debian's package is libuvc-dev"
)

if(LibUVC_FOUND AND NOT TARGET LibUVC::LibUVC)
    add_library(LibUVC::LibUVC UNKNOWN IMPORTED)
    set_target_properties(LibUVC::LibUVC PROPERTIES
        IMPORTED_LOCATION "${LibUVC_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LibUVC_INCLUDE_DIR}"
    )
endif()
mark_as_advanced(LibUVC_INCLUDE_DIR LibUVC_LIBRARY)
