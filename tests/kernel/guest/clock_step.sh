#!/bin/sh
# The system's clock is set an hour ahead, and back again, while a camera streams: no interval of its
# frames changes: clock_step.sh ZRNCAM
set -eu
zrncam=$1
report=/tmp/clock_step.json

# step SECONDS
step() {
    date -s "@$(($(date +%s) + $1))"
}

timeout 120 "$zrncam" --json --quiet stream --seconds 12 > "$report" &
until ls /sys/bus/usb/devices/*-*:1.1/driver > /dev/null 2>&1; do sleep 0.1; done
sleep 3
step 3600
sleep 3
step -3600
wait $!
jq '{frames, rate: .measuredRate, times}' "$report"
jq -e '.frames > 10 and .times.source == "payload" and .times.periodMs < 10000 and
    ([.times.jitterMs, .times.transferMs, .times.handOverMs] | all(.max >= 0 and .max < 60000))' "$report"
