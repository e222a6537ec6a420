#!/bin/sh
# lsusb reads every camera and warns of nothing: lsusb.sh COUNT
set -eu
listing=$(lsusb -v -d 0483:5750 2>&1)
echo "$listing"
if echo "$listing" | grep -iE "warning|error|can't|unrecognized|invalid|\?\?|unknown"; then
    echo "lsusb complains about a camera"
    exit 1
fi
[ "$(echo "$listing" | grep -c '^Device Descriptor:')" -eq "$1" ]
