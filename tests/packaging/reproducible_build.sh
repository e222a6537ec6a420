#!/usr/bin/env bash
# Two builds of the plugin, in folders of different names, give the same bytes: reproducible_build.sh SOURCE_DIR
set -euo pipefail
export CCACHE_DISABLE=1
for copy in one another-one; do
    rm -rf "reproducible/$copy"
    mkdir -p "reproducible/$copy"
    (cd "$1" && tar -c CMakeLists.txt client cmake interfaces camera plugin host/example packaging) |
        tar -x -C "reproducible/$copy"
    cmake -S "reproducible/$copy" -B "reproducible/$copy/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_TESTING=OFF >/dev/null
    cmake --build "reproducible/$copy/build" --target zrncamera >/dev/null
done
cmp reproducible/one/build/lib/libzrncamera.so reproducible/another-one/build/lib/libzrncamera.so
sha256sum reproducible/*/build/lib/libzrncamera.so
