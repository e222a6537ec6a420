#!/usr/bin/env bash
# A host finds the contract with pkg-config: pkgconfig_package.sh PREFIX LIBDIR PLUGIN_DIR
set -euo pipefail
folder=pkgconfig-consumer
rm -rf "$folder"
mkdir "$folder"
export PKG_CONFIG_PATH=$1/$2/pkgconfig
flags=$(pkg-config --cflags --libs "zrncamera$QT_SUFFIX")
# shellcheck disable=SC2086
g++ -std=c++17 "$SOURCE_DIR/host/example/minimal_host.cpp" $flags -o "$folder/minimal_host"
pkg-config --variable=pluginfile "zrncamera$QT_SUFFIX" | grep '/libzrncamera.so$'
"${0%/*}/run_example.sh" "$folder/minimal_host" "$3"

# The client library, whose headers need none of Qt's.
# shellcheck disable=SC2046
g++ -std=c++20 "$SOURCE_DIR/host/example/grab_ten.cpp" $(pkg-config --cflags --libs "zrnclient$QT_SUFFIX") -o "$folder/grab_ten"
cd "$folder"
ZRNCAM_PLUGIN=$3/libzrncamera.so "$BUILD_DIR/bin/zrnsim" --camera type2 -- ./grab_ten
[ "$(ls frame-*.pgm | wc -l)" -eq 20 ]
