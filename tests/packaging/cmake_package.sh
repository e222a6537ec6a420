#!/usr/bin/env bash
# A host finds the contract with find_package: cmake_package.sh PREFIX PLUGIN_DIR
set -euo pipefail
folder=cmake-consumer
rm -rf "$folder"
mkdir "$folder"
cat >"$folder/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.16)
project(consumer LANGUAGES CXX)
find_package(zrncamera$QT_SUFFIX 2 REQUIRED)
message(STATUS "plugin: \${zrncamera${QT_SUFFIX}_PLUGIN_FILE}")
foreach(host minimal_host check_plugin)
    add_executable(\${host} "$SOURCE_DIR/host/example/\${host}.cpp")
    target_link_libraries(\${host} PRIVATE zrncamera$QT_SUFFIX::interfaces)
endforeach()
add_executable(grab_ten "$SOURCE_DIR/host/example/grab_ten.cpp")
target_link_libraries(grab_ten PRIVATE zrncamera$QT_SUFFIX::client)
END
cmake -S "$folder" -B "$folder/build" -G Ninja -DCMAKE_PREFIX_PATH="$1" -DCMAKE_BUILD_TYPE=Release >"$folder/log"
grep 'plugin: .*/libzrncamera.so$' "$folder/log"
cmake --build "$folder/build"
"${0%/*}/run_example.sh" "$folder/build/minimal_host" "$2"
