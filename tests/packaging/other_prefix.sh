#!/usr/bin/env bash
# A prefix that is named at the installation gets all of it, and its programs find the plugin there:
# other_prefix.sh CMAKE BINDIR PLUGIN_DIR LIBDIR
set -euo pipefail
prefix=$PWD/other-prefix
rm -rf "$prefix"
"$1" --install "$BUILD_DIR" --prefix "$prefix" >install.log
outside=$(sed -n 's/^-- \(Installing\|Up-to-date\): //p' install.log | grep -v "^$prefix/" || true)
[ -z "$outside" ] || { echo "installed elsewhere: $outside" >&2; exit 1; }

plugin=$prefix/$3/libzrncamera.so
doctor=$(env -u ZRNCAM_PLUGIN "$prefix/$2/zrncam" doctor --json || true)
grep -q "$plugin" <<<"$doctor" || { echo "zrncam does not find $plugin: $doctor" >&2; exit 1; }
[ "$(PKG_CONFIG_PATH=$prefix/$4/pkgconfig pkg-config --variable=pluginfile zrncamera | xargs realpath)" = "$plugin" ]
