#!/usr/bin/env bash
# No frame is missing from a stream's first on, at a rate that any machine sustains: first_frames.sh ZRNSIM ZRNSIM_CTL
# ZRNCAM PLUGIN
set -euo pipefail
zrnsim=$1
export ZRNSIM_CTL=$2 ZRNCAM=$3 ZRNCAM_PLUGIN=$4 QT_LOGGING_RULES='*=false'

# A camera paints its scenes at its first stream; so each camera starts a few times.
# shellcheck disable=SC2016
streams='for start in 1 2 3 4; do
    "$ZRNSIM_CTL" frame-number number=0
    "$ZRNCAM" --json --quiet stream --seconds 0.25 || exit
done
"$ZRNSIM_CTL" frames'

# What the host has received, and what the camera has sent: the numbers of each stream from 0 on.
is_complete() {
    "$zrnsim" --camera type2,rate=20 -- sh -c "$streams" >first_frames.log 2>first_frames.err
    [ "$(grep -c '"missing": 0,' first_frames.log)" -eq 4 ] && [ "$(grep -c '^    "frames": [1-9]' first_frames.log)" -eq 4 ] &&
        sed -n 's/.*"frameNumber": \([0-9]*\),.*/\1/p' first_frames.log |
        awk '$1 == 0 { ++starts } $1 != 0 && $1 != last + 1 { lost = 1 } { last = $1 }
             END { exit lost || starts != 4 }'
}

for camera in 1 2 3 4 5; do
    # A machine that is starved for a moment loses frames at any time.
    is_complete || is_complete || is_complete || {
        read -r load _ </proc/loadavg
        echo "camera $camera, at a load of $load:"
        [ "${load%.*}" -lt $((6 * $(nproc))) ] || exit 77 # sustains no rate
        grep -E '"(frames|missing|frameNumber)":' first_frames.log
        exit 1
    }
done
