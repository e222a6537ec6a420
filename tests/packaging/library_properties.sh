#!/usr/bin/env bash
# What the plugin's file may and must carry: library_properties.sh PLUGIN QT_CORE
set -euo pipefail
plugin=$1
qt_core=$2
dynamic=$(readelf --dynamic --wide "$plugin")

fail() {
    echo "$1" >&2
    exit 1
}

grep -q 'SONAME.*\[libzrncamera.so\]' <<<"$dynamic" || fail "wrong soname"
! grep -qE 'RPATH|RUNPATH' <<<"$dynamic" || fail "a search path of the build tree is in the file"
! grep -q TEXTREL <<<"$dynamic" || fail "text relocations"
# A thread pool or a fallback would show here as a library that hosts did not ask for.
needed=$(sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' <<<"$dynamic" | sort | tr '\n' ' ')
for library in $needed; do
    case $library in
        "$qt_core" | libuvc.so.0 | libhwy.so.1 | libstdc++.so.6 | libgcc_s.so.1 | libc.so.6 | libm.so.6 | ld-linux*) ;;
        libasan.so.* | libubsan.so.* | libtsan.so.*) ;;
        *) fail "unexpected library $library" ;;
    esac
done
grep -q 'Build ID: [0-9a-f]\{40\}' <<<"$(readelf --notes --wide "$plugin")" || fail "no build id"
grep -q 'GNU_STACK .* RW ' <<<"$(readelf --segments --wide "$plugin")" || fail "executable stack"
