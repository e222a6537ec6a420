# Folders that an installation uses. Below its prefix, the plugin lies where Qt has its plugins below Qt's own; hosts
# look for it in a folder of its own there.

include(GNUInstallDirs)

# Cross builds name the folder: Qt's qmake of the target cannot be asked there.
if(NOT DEFINED ZRN_PLUGIN_DIR)
    get_target_property(zrn_qmake Qt${ZRN_QT}::qmake IMPORTED_LOCATION)
    foreach(folder IN ITEMS PREFIX PLUGINS)
        execute_process(COMMAND "${zrn_qmake}" -query QT_INSTALL_${folder}
            OUTPUT_VARIABLE zrn_qt_${folder} OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    cmake_path(IS_PREFIX zrn_qt_PREFIX "${zrn_qt_PLUGINS}" zrn_is_below_prefix)
    if(zrn_is_below_prefix)
        cmake_path(RELATIVE_PATH zrn_qt_PLUGINS BASE_DIRECTORY "${zrn_qt_PREFIX}")
    else()
        set(zrn_qt_PLUGINS "${CMAKE_INSTALL_LIBDIR}/qt${ZRN_QT}/plugins")
    endif()
endif()
set(ZRN_PLUGIN_DIR "${zrn_qt_PLUGINS}/zrncamera" CACHE STRING
    "Folder that the plugin is installed to, absolute or below the prefix")
cmake_path(ABSOLUTE_PATH ZRN_PLUGIN_DIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE zrn_full_plugin_dir)
cmake_path(APPEND zrn_full_plugin_dir "libzrncamera.so" OUTPUT_VARIABLE zrn_plugin_file)
# How programs that are installed beside it get there, wherever the prefix is at last.
if(IS_ABSOLUTE "${ZRN_PLUGIN_DIR}")
    set(zrn_plugin_from_programs "${zrn_plugin_file}")
else()
    cmake_path(RELATIVE_PATH zrn_plugin_file BASE_DIRECTORY "${CMAKE_INSTALL_FULL_BINDIR}"
        OUTPUT_VARIABLE zrn_plugin_from_programs)
endif()

option(ZRN_INSTALL_UDEV_RULE "Install the rule that lets the user at the machine open the cameras" OFF)
option(ZRN_INSTALL_SERVICES "Install systemd's units for zrnserve and zrncam record" OFF)
# What the local administrator writes belongs to /etc; below /usr stands that of packages.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(zrn_udev_rules "/usr/lib/udev/rules.d")
    set(zrn_units "/lib/systemd/system")
    set(zrn_sysusers "/usr/lib/sysusers.d")
else()
    set(zrn_udev_rules "/etc/udev/rules.d")
    set(zrn_units "/etc/systemd/system")
    set(zrn_sysusers "/etc/sysusers.d")
endif()
set(ZRN_UDEV_RULES_DIR "${zrn_udev_rules}" CACHE PATH "Folder that the udev rule is installed to")
set(ZRN_UNITS_DIR "${zrn_units}" CACHE PATH "Folder that systemd's units are installed to")
set(ZRN_SYSUSERS_DIR "${zrn_sysusers}" CACHE PATH "Folder that the services' user is installed to, for systemd-sysusers")
