pkg_check_modules(UMOCKDEV QUIET IMPORTED_TARGET umockdev-1.0>=0.17)
find_package(CLI11 QUIET)
find_package(nlohmann_json QUIET)
find_package(Threads QUIET)

zrn_need(UMOCKDEV_FOUND libumockdev-dev)
zrn_need(CLI11_FOUND libcli11-dev)
zrn_need(nlohmann_json_FOUND nlohmann-json3-dev)
zrn_need(Threads_FOUND libc6-dev)
