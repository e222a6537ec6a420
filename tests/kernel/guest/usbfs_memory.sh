#!/bin/sh
# A camera under the kernel's limit of 16 MB for USB transfers, and with the limit raised:
# usbfs_memory.sh ZRNCAM VERDICT NEED
# VERDICT is what the doctor says of 16 MB, NEED a part of its message. The camera streams either
# way: beyond the limit it does with fewer transfers.
set -u
zrncam=$1
verdict=$2
need=$3
here=$(dirname "$0")
limit=/sys/module/usbcore/parameters/usbfs_memory_mb
failed=0

# check COMMAND...: must succeed
check() {
    "$@"
    status=$?
    echo "status $status of $*"
    [ "$status" -eq 0 ] || failed=1
}

# says PATTERN: what the doctor says of the memory of transfers
says() {
    message=$("$zrncam" doctor --json |
        jq -r '.findings[] | select(.subject == "usbfs-memory") | .message')
    echo "$message"
    case $message in
        *"$1"*) return 0 ;;
        *) return 1 ;;
    esac
}

[ "$(cat $limit)" = 16 ] || { echo "the limit is $(cat $limit)"; exit 1; }
check says "$need"
check "$here/doctor.sh" "$zrncam" "usbfs-memory=$verdict"
check timeout 60 "$zrncam" stream --seconds 3
echo 256 > $limit
check "$here/doctor.sh" "$zrncam" usbfs-memory=ok
check timeout 60 "$zrncam" stream --seconds 3

# A camera that streams is not asked, and streams on.
timeout 60 "$zrncam" stream --seconds 10 &
until ls /sys/bus/usb/devices/*-*:1.1/driver > /dev/null 2>&1; do sleep 0.1; done
check says "if each payload is a whole frame"
check wait $!
exit "$failed"
