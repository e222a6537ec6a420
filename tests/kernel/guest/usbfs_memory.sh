#!/bin/sh
# Streams under the kernel's limit of 16 MB for USB transfers, and above it.
# usbfs_memory.sh ZRNCAM SMALL LARGE: serials of a camera with payloads of which a hundred fit below
# the limit, and of one with larger ones.
set -u
zrncam=$1
small=$2
large=$3
here=$(dirname "$0")
limit=/sys/module/usbcore/parameters/usbfs_memory_mb
failed=0

check() {
    expected=$1
    shift
    timeout 60 "$@"
    status=$?
    echo "status $status of $*"
    case $expected in
        works) [ "$status" -eq 0 ] || failed=1 ;;
        ends) [ "$status" -ne 124 ] && [ "$status" -lt 128 ] || failed=1 ;;
    esac
}

[ "$(cat $limit)" = 16 ] || { echo "the limit is $(cat $limit)"; exit 1; }
"$here/doctor.sh" "$zrncam" usbfs-memory=warning || failed=1
check works "$zrncam" stream --serial "$small" --seconds 3
check ends "$zrncam" stream --serial "$large" --seconds 3
echo 256 > $limit
"$here/doctor.sh" "$zrncam" usbfs-memory=ok || failed=1
check works "$zrncam" stream --serial "$large" --seconds 3
echo 16 > $limit
exit "$failed"
