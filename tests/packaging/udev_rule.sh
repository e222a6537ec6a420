#!/usr/bin/env bash
# The packaged udev rule is the one that `zrncam doctor` tells users to write, and comes early enough for
# the rules that act on its tag.
set -euo pipefail
rule=$(echo "$BUILD_DIR"/made/*-zrncamera.rules)
number=${rule##*/}
[ "${number%%-*}" -lt 73 ]
[ "$(grep -v '^#' "$rule")" = 'SUBSYSTEM=="usb", ATTR{idVendor}=="0483", ATTR{idProduct}=="5750", TAG+="uaccess"' ]

root=$(mktemp -d)
trap 'chmod -R u+rwX "$root"; rm -rf "$root"' EXIT
device=$root/sys/bus/usb/devices/1-1
mkdir -p "$device" "$root/dev/bus/usb/001"
echo 0483 >"$device/idVendor"
echo 5750 >"$device/idProduct"
echo 1 >"$device/busnum"
echo 3 >"$device/devnum"
node=$root/dev/bus/usb/001/003
touch "$node"
chmod 0 "$node"
if [ -r "$node" ]; then
    # Root may open everything, and is told no remedy. A compiler may store a text in pieces, so what the program was
    # compiled with is looked at.
    grep -qF "$(grep '^SUBSYSTEM' "$rule")" "$BUILD_DIR/made/udev_rule.h"
else
    findings=$("$BUILD_DIR/bin/zrncam" doctor --root "$root" || true)
    grep -qF "$(grep '^SUBSYSTEM' "$rule")" <<<"$findings"
fi
