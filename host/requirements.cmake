find_package(Qt${ZRN_QT} ${ZRN_QT_LEAST} QUIET COMPONENTS Gui)
zrn_need(Qt${ZRN_QT}Gui_FOUND ${ZRN_QT_PACKAGE})
find_package(CLI11 QUIET)
zrn_need(CLI11_FOUND libcli11-dev)
