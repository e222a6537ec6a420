#!/bin/sh
# The system's clock is set an hour ahead, and back again, while a camera streams: no interval of its
# frames changes: clock_step.sh ZRNCAM ZRNSIM_CTL
set -eu
zrncam=$1
ctl=$2
report=/tmp/clock_step.json

# step SECONDS
step() {
    date -s "@$(($(date +%s) + $1))"
}

frames_sent() {
    "$ctl" counters | jq '[.. | .framesSent? // empty] | add'
}

# Waits until so many more frames have been sent.
await_frames() {
    until [ "$(frames_sent)" -ge "$(($1 + $2))" ]; do sleep 0.1; done
}

until ls /sys/bus/usb/devices/*-*:1.1 > /dev/null 2>&1; do sleep 0.1; done
before=$(frames_sent)
timeout 120 "$zrncam" --json --quiet stream --seconds 12 > "$report" &
await_frames "$before" 1
step 3600
await_frames "$(frames_sent)" 30
last=$(frames_sent)
step -3600
wait $!
jq '{frames, missing, rate: .measuredRate, times}' "$report"
jq -e --argjson last "$((last - before))" '.frames + .missing > $last + 10 and .frames > 10 and
    .times.source == "payload" and .times.periodMs < 10000 and
    ([.times.jitterMs, .times.transferMs, .times.handOverMs] | all(.max >= 0 and .max < 60000))' "$report"
