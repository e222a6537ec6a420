find_package(Qt5 5.15 QUIET COMPONENTS Gui)
zrn_need(Qt5Gui_FOUND qtbase5-dev)
find_package(CLI11 QUIET)
zrn_need(CLI11_FOUND libcli11-dev)
