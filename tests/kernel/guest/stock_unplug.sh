#!/bin/sh
# Counts what becomes of programs on the stock libraries whose camera is unplugged. Only shows it:
# stock_unplug.sh UVC_UNPLUG ZRNSIM_CTL RUNS
set -u
uvc_unplug=$1
ctl=$2
runs=$3

for moment in idle paused streaming stopping; do
    fine=0 aborted=0 hung=0 other=0
    for _ in $(seq "$runs"); do
        "$ctl" clear-faults > /dev/null
        "$ctl" plug camera=0 > /dev/null 2>&1
        until ls /sys/bus/usb/devices/*-*:1.1 > /dev/null 2>&1; do sleep 0.1; done
        udevadm settle
        timeout -s KILL 10 "$uvc_unplug" "$moment" > /dev/null 2> /tmp/errors
        status=$?
        case $status in
            0) fine=$((fine + 1)) ;;
            134) aborted=$((aborted + 1)) ;;
            137) hung=$((hung + 1)) ;;
            *) other=$((other + 1)); echo "status $status"; cat /tmp/errors ;;
        esac
        "$ctl" unplug camera=0 > /dev/null 2>&1 # should the program not have come so far
        while ls /sys/bus/usb/devices/*-*:1.1 > /dev/null 2>&1; do sleep 0.1; done
    done
    echo "$moment: $fine fine, $aborted aborted, $hung hung, $other otherwise"
done
