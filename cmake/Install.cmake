# Where hosts look: the plugin in Qt's plugin folder, the host contract and the tick thread's header in the
# include folder.

include(GNUInstallDirs)

get_target_property(zrn_qmake Qt5::qmake IMPORTED_LOCATION)
execute_process(COMMAND "${zrn_qmake}" -query QT_INSTALL_PLUGINS
    OUTPUT_VARIABLE zrn_qt_plugins OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(ZRN_PLUGIN_DIR "${zrn_qt_plugins}/zrncamera" CACHE PATH "Folder that the plugin is installed to")

install(TARGETS zrncamera LIBRARY DESTINATION "${ZRN_PLUGIN_DIR}")
install(FILES
    interfaces/camera_interface.h
    interfaces/camera_types.h
    interfaces/device_interface.h
    interfaces/error_code.h
    interfaces/factory_interface.h
    plugin/tick_thread.h
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera"
)
