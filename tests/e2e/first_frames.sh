#!/usr/bin/env bash
# No frame is missing from a stream's first on, at a rate that any machine sustains: first_frames.sh ZRNSIM ZRNSIM_CTL
# ZRNCAM PLUGIN
set -euo pipefail
export ZRNCAM_PLUGIN=$4 QT_LOGGING_RULES='*=false'

# A camera paints its scenes at its first stream; so each camera starts a few times.
# shellcheck disable=SC2016
streams='for start in 1 2 3 4; do "$2" --json --quiet stream --seconds 0.25; done; "$1" counters'
for _ in 1 2 3 4 5; do
    "$1" --camera type2,rate=20 -- sh -c "$streams" sh "$2" "$3"
done >first_frames.log 2>first_frames.err

[ "$(grep -c '"missing": 0,' first_frames.log)" -eq 20 ] || { grep -h '"missing"\|"framesOverrun"' first_frames.log; exit 1; }
[ "$(grep -c '"framesOverrun": 0,' first_frames.log)" -eq 5 ] || { grep -h '"frames' first_frames.log; exit 1; }
[ "$(grep -c '"frames": [1-9]' first_frames.log)" -eq 20 ] || { echo "a stream without frames"; exit 1; }
