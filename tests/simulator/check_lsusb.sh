#!/usr/bin/env bash
# check_lsusb.sh ZRNSIM: fails when lsusb -v warns about a virtual camera, or cannot read one.
set -euo pipefail

zrnsim=$1
cameras=()
count=0
while read -r model _; do
    for variant in "" ,speed=high ,pipe=iso ,pipe=iso,speed=super; do
        cameras+=(--camera "$model$variant")
        count=$((count + 1))
    done
done < <("$zrnsim" --list-models)

listing=$("$zrnsim" "${cameras[@]}" -- lsusb -v -d 0483:5750 2>&1)
if grep -iE "warning|error|can't|unrecognized|invalid|\?\?|unknown" <<<"$listing"; then
    echo "lsusb complains about a camera" >&2
    exit 1
fi
found=$(grep -c '^Device Descriptor:' <<<"$listing")
if [ "$found" -ne "$count" ]; then
    echo "lsusb shows $found of $count cameras" >&2
    exit 1
fi
echo "$found cameras, no complaint"
