# What `cmake --install` puts where. The components, for `--component`: plugin, development, tools, viewer,
# server, simulator, gstreamer, python. What belongs to one Qt, plugin and development, lies beside that of the other.

include(CMakePackageConfigHelpers)

set(zrn_package zrncamera${ZRN_QT_SUFFIX})
set(zrn_package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/${zrn_package}")

# zrn_install_tool(<target> <component>): the program and its manual page, where it is built.
function(zrn_install_tool target component)
    if(TARGET ${target})
        install(TARGETS ${target} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
        install(FILES "packaging/man/${target}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
            COMPONENT ${component})
    endif()
endfunction()

install(TARGETS zrncamera LIBRARY DESTINATION "${ZRN_PLUGIN_DIR}" COMPONENT plugin)
if(ZRN_INSTALL_UDEV_RULE)
    install(FILES "${zrn_made}/${ZRN_UDEV_RULE_FILE}" DESTINATION "${ZRN_UDEV_RULES_DIR}" COMPONENT plugin)
endif()

install(TARGETS zrncamera_interfaces EXPORT ${zrn_package}Targets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera")
install(EXPORT ${zrn_package}Targets NAMESPACE ${zrn_package}::
    DESTINATION "${zrn_package_folder}" COMPONENT development)
install(DIRECTORY interfaces/ DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera" COMPONENT development
    FILES_MATCHING PATTERN "*.h")
install(FILES plugin/tick_thread.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera"
    COMPONENT development)
install(TARGETS zrnclient zrncamera_ids EXPORT ${zrn_package}Targets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera")
get_target_property(zrn_client_headers zrnclient ZRN_HEADERS)
install(FILES ${zrn_client_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera/client"
    COMPONENT development)
install(FILES "${zrn_made}/camera_ids.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/zrncamera" COMPONENT development)
configure_package_config_file(packaging/zrncameraConfig.cmake.in ${zrn_package}Config.cmake
    INSTALL_DESTINATION "${zrn_package_folder}" PATH_VARS ZRN_PLUGIN_DIR)
write_basic_package_version_file(${zrn_package}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" OUTPUT_VARIABLE zrn_prefix_from_pkgconfig)
set(zrn_pkgconfig_plugin_file "${zrn_plugin_file}")
if(NOT IS_ABSOLUTE "${ZRN_PLUGIN_DIR}")
    string(CONCAT zrn_pkgconfig_plugin_file [[${prefix}]] "/${ZRN_PLUGIN_DIR}/libzrncamera.so")
endif()
configure_file(packaging/zrncamera.pc.in zrncamera${ZRN_QT_SUFFIX}.pc @ONLY)
configure_file(packaging/zrnclient.pc.in zrnclient${ZRN_QT_SUFFIX}.pc @ONLY)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/${zrn_package}Config.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/${zrn_package}ConfigVersion.cmake"
    DESTINATION "${zrn_package_folder}" COMPONENT development)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/zrncamera${ZRN_QT_SUFFIX}.pc" "${CMAKE_CURRENT_BINARY_DIR}/zrnclient${ZRN_QT_SUFFIX}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

if(TARGET gstzrncamera)
    install(TARGETS gstzrncamera LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0" COMPONENT gstreamer)
endif()

zrn_install_tool(zrncam tools)
zrn_install_tool(zrnrec tools)
zrn_install_tool(zrnview viewer)
zrn_install_tool(zrnserve server)
zrn_install_tool(zrnsim simulator)
zrn_install_tool(zrnsim-ctl simulator)
if(ZRN_INSTALL_SERVICES)
    if(TARGET zrnserve)
        install(FILES "${zrn_made}/zrnserve.service" DESTINATION "${ZRN_UNITS_DIR}" COMPONENT server)
    endif()
    if(TARGET zrncam)
        install(FILES "${zrn_made}/zrncam-record@.service" DESTINATION "${ZRN_UNITS_DIR}" COMPONENT tools)
        install(FILES "${zrn_made}/zrncamera.conf" DESTINATION "${ZRN_SYSUSERS_DIR}" COMPONENT tools)
    endif()
endif()
if(TARGET zrncam)
    set(completions host/zrncam/completions)
    install(FILES ${completions}/zrncam.bash RENAME zrncam
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
    install(FILES ${completions}/_zrncam
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" COMPONENT tools)
    install(FILES ${completions}/zrncam.fish
        DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tools)
    install(FILES ${completions}/_zrn_tools
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" COMPONENT tools)
    foreach(program zrnrec zrnserve zrnview zrnsim zrnsim-ctl)
        install(FILES ${completions}/tools.bash RENAME ${program}
            DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
        install(FILES ${completions}/tools.fish RENAME ${program}.fish
            DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tools)
    endforeach()
endif()
if(TARGET zrnview)
    install(FILES packaging/desktop/zrnview.desktop
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications" COMPONENT viewer)
    install(FILES packaging/desktop/zrnview.svg
        DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps" COMPONENT viewer)
    install(FILES packaging/desktop/zrnrec.xml
        DESTINATION "${CMAKE_INSTALL_DATADIR}/mime/packages" COMPONENT viewer)
    install(FILES packaging/desktop/application-x-zrnrec.svg
        DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/mimetypes" COMPONENT viewer)
endif()
