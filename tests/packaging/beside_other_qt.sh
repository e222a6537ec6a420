#!/usr/bin/env bash
# Plugin and development files for Qt 5 and 6 do not stand in each other's way: beside_other_qt.sh PREFIX PLUGIN_DIR LIBDIR QT
set -euo pipefail
prefix=$1
libraries=$prefix/$3

! grep -q "/qt$((11 - $4))/" <<<"$2/" || { echo "the plugin lies among those of the other Qt: $2" >&2; exit 1; }
[ -f "$2/libzrncamera.so" ]
# Headers are the same for both. All else tells its Qt in its name or in its folder's.
files=$(cd "$libraries" && find . -name 'lib*.a' -o -path './cmake/*' -type f -o -path './pkgconfig/*' -type f)
if [ -n "$QT_SUFFIX" ]; then
    others=$(grep -v -e "$QT_SUFFIX" <<<"$files" || true)
else
    others=$(grep -e -qt <<<"$files" || true)
fi
[ -z "$others" ] || { echo "with the name of another Qt: $others" >&2; exit 1; }
[ "$(grep -c -e '\.a$' <<<"$files")" -eq 2 ]
[ "$(grep -c -e '\.pc$' <<<"$files")" -eq 2 ]
grep -q "/cmake/zrncamera$QT_SUFFIX/zrncamera${QT_SUFFIX}Config.cmake$" <<<"$files"
