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
[ "$(PKG_CONFIG_PATH=$prefix/$4/pkgconfig pkg-config --variable=pluginfile "zrncamera$QT_SUFFIX" | xargs realpath)" = "$plugin" ]

# Programs of other installations load the client library: GStreamer's and Python's find the driver beside it.
export QT_LOGGING_RULES='*=false'
unset ZRNCAM_PLUGIN
elements=$prefix/$4/gstreamer-1.0
if [ -f "$elements/libgstzrncamera.so" ] && [ -x "$BUILD_DIR/bin/zrnsim" ]; then
    # GStreamer looks at few plugins alone: at all of them it takes long.
    ln -s "$(pkg-config --variable=pluginsdir gstreamer-1.0)/libgstcoreelements.so" "$elements"
    GST_PLUGIN_SYSTEM_PATH=$elements GST_PLUGIN_PATH='' GST_REGISTRY=$prefix/registry.bin \
        "$BUILD_DIR/bin/zrnsim" --camera type2,sizes=64x48 -- gst-launch-1.0 zrnsrc num-buffers=3 ! fakesink >pipeline.log 2>&1 ||
        { cat pipeline.log >&2; exit 1; }
fi
module=$(find "$prefix" -path '*/zrncamera/__init__.py')
if [ -n "$module" ] && [ -x "$BUILD_DIR/bin/zrnsim" ] && /usr/bin/python3 -c 'import numpy' 2>/dev/null; then
    PYTHONPATH=$(dirname "$(dirname "$module")") PYTHONDONTWRITEBYTECODE=1 \
        "$BUILD_DIR/bin/zrnsim" --camera type2,sizes=64x48 -- /usr/bin/python3 -c 'import zrncamera; zrncamera.open().close()'
fi
