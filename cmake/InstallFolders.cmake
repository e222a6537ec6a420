# Folders that an installation uses. Hosts look for the plugin in a folder of its own below Qt's.

include(GNUInstallDirs)

# Cross builds name the folder: Qt's qmake of the target cannot be asked there.
if(NOT DEFINED ZRN_PLUGIN_DIR)
    get_target_property(zrn_qmake Qt5::qmake IMPORTED_LOCATION)
    execute_process(COMMAND "${zrn_qmake}" -query QT_INSTALL_PLUGINS
        OUTPUT_VARIABLE zrn_qt_plugins OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
set(ZRN_PLUGIN_DIR "${zrn_qt_plugins}/zrncamera" CACHE PATH "Folder that the plugin is installed to")
cmake_path(APPEND zrn_plugin_file "${ZRN_PLUGIN_DIR}" "libzrncamera.so")

option(ZRN_INSTALL_UDEV_RULE "Install the rule that lets the user at the machine open the cameras" OFF)
# Rules of the local administrator belong to /etc; below /usr stand those of packages.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(zrn_udev_rules "/usr/lib/udev/rules.d")
else()
    set(zrn_udev_rules "/etc/udev/rules.d")
endif()
set(ZRN_UDEV_RULES_DIR "${zrn_udev_rules}" CACHE PATH "Folder that the udev rule is installed to")
