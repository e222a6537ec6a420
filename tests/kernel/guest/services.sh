#!/bin/sh
# A recorder and a server run as services while the cables of their two cameras are pulled at random; in the end each must have
# counted what its camera sent: services.sh BUILD SECONDS
set -eu
build=$1
seconds=$2
ctl=$build/bin/zrnsim-ctl
rule=/etc/udev/rules.d/70-zrncamera.rules
http=http://127.0.0.1:8555

fail() {
    echo "$*"
    systemctl status --no-pager zrnserve "zrncam-record@$recorded" || true
    exit 1
}

# wait_until COMMAND...
wait_until() {
    for _ in $(seq 600); do
        ! "$@" || return 0
        sleep 0.2
    done
    fail "in vain: $*"
}

field() {
    "$ctl" "$1" camera="$2" | jq -r "$3"
}

# counted NAME: the sum of a metric of the camera that is served
counted() {
    wget -qO- "$http/metrics" | awk -v name="$1" -v serial="\"$served\"" \
        'index($0, name "{") == 1 && index($0, serial) { sum += $NF } END { print sum + 0 }'
}

is_listed() {
    wget -qO- "$http/" | jq -e --arg serial "$served" '.cameras[] | select(.serial == $serial and .present)' > /dev/null
}

is_looked_at() {
    [ "$(counted zrn_viewers)" -eq 1 ] && [ "$(counted zrn_frames_total)" -gt 0 ]
}

is_recorded() {
    ls "/var/lib/zrncam/$recorded"/*.zrnrec > /dev/null 2>&1
}

random() {
    awk -v from="$1" -v to="$2" -v seed="$(od -An -N4 -tu4 /dev/urandom)" \
        'BEGIN { srand(seed); printf "%.1f", from + rand() * (to - from) }'
}

recorded=ZR$(field camera 0 .camera.serial)
served=ZR$(field camera 1 .camera.serial)

mkdir -p /usr/local/bin /etc/default "${rule%/*}"
for program in zrncam zrnserve; do
    ln -sf "$build/bin/$program" /usr/local/bin
done
echo "ZRNCAM_PLUGIN=$build/lib/libzrncamera.so" | tee /etc/default/zrncam-record > /etc/default/zrnserve
printf "%s\n" "GST_PLUGIN_PATH=$build/lib/gstreamer-1.0" GST_REGISTRY_FORK=no >> /etc/default/zrnserve
sed 's/TAG+="uaccess"/&, GROUP="plugdev", MODE="0660"/' "$build/made/70-zrncamera.rules" > "$rule"
udevadm control --reload
udevadm trigger --settle --subsystem-match=usb
systemd-sysusers "$build/made/zrncamera.conf"
cp "$build"/made/*.service /etc/systemd/system
systemctl daemon-reload
systemctl start zrnserve "zrncam-record@$recorded"

wait_until is_listed
GST_REGISTRY_FORK=no gst-launch-1.0 -q rtspsrc location="rtsp://127.0.0.1:8554/$served/ab" tcp-timeout=600000000 ! fakesink &
client=$!
wait_until is_looked_at
wait_until is_recorded

pulled_0=0 pulled_1=0
read -r begin _ < /proc/uptime
end=$((${begin%.*} + seconds))
now=${begin%.*}
while [ "$now" -lt "$end" ] || [ "$pulled_0" -eq 0 ] || [ "$pulled_1" -eq 0 ]; do
    sleep "$(random 3 40)"
    camera=$(random 0 1.9)
    camera=${camera%.*}
    "$ctl" unplug camera="$camera" > /dev/null
    sleep "$(random 0 10)"
    "$ctl" plug camera="$camera" > /dev/null
    eval "pulled_$camera=\$((pulled_$camera + 1))"
    read -r now _ < /proc/uptime
    now=${now%.*}
done

# Both send again.
sends() {
    [ "$(field counters "$1" .counters.framesSent)" -gt "$2" ]
}
for camera in 0 1; do
    wait_until sends "$camera" "$(($(field counters "$camera" .counters.framesSent) + 10))"
done
for unit in zrnserve "zrncam-record@$recorded"; do
    systemctl is-active --quiet "$unit" || fail "$unit is not active"
    [ "$(systemctl show --value --property NRestarts "$unit")" -eq 0 ] || fail "$unit was started again"
    echo "$unit: $(systemctl show --value --property MemoryCurrent "$unit") bytes of memory"
done

# account WHO PULLED FRAMES MISSING FIRST LAST WHOLE WAITING: each number that the camera sent is there or counted, all but so
# many, from the first to the last one; so many of them were sent whole
account() {
    who=$1 pulled=$2 frames=$3 missing=$4 whole=$7
    numbers=$(($6 - $5 + 1))
    echo "$who: pulled $pulled times; numbers $5 to $6, of them $whole sent whole; frames $frames, missing $missing"
    if [ "$((frames + missing))" -gt "$numbers" ] || [ "$((frames + missing))" -lt "$((numbers - $8))" ]; then
        fail "$who has counted $((frames + missing)) of $numbers"
    fi
    if [ "$frames" -eq 0 ] || [ "$frames" -gt "$whole" ]; then
        fail "that cannot be"
    fi
}

# sent CAMERA FIRST LAST: the first and the last number between these that the camera began to send, and how many it sent whole
sent() {
    field frames "$1" "[.frames[] | select(.frameNumber >= $2 and .frameNumber <= $3)] |
        \"\(first.frameNumber) \(last.frameNumber) \([.[] | select(.complete)] | length)\""
}

systemctl stop "zrncam-record@$recorded"
[ "$(systemctl show --value --property Result "zrncam-record@$recorded")" = success ] || fail "the recorder did not end well"
set=/var/lib/zrncam/$recorded/recording_0001.json
[ "$(ls "/var/lib/zrncam/$recorded"/*.json)" = "$set" ] || fail "there is more than one set"
for file in "/var/lib/zrncam/$recorded"/*.zrnrec; do
    "$build/bin/zrnrec" verify "$file" > /dev/null || fail "$file is damaged"
done
# shellcheck disable=SC2046 # several arguments
account "zrncam record" "$pulled_0" $(jq -r '.cameras[0] | "\(.frames) \(.missing)"' "$set") \
    $(sent 0 $(jq -r '.cameras[0].files | "\(first.firstNumber) \(last.lastNumber)"' "$set")) 0

# The camera falls silent. As many as the driver's transfers hold may be on their way yet.
"$ctl" freeze camera=1 > /dev/null
sleep 4
# shellcheck disable=SC2046
account zrnserve "$pulled_1" "$(counted zrn_frames_total)" "$(counted zrn_frames_missing_total)" $(sent 1 0 4294967295) 16
kill "$client"
systemctl stop zrnserve
[ "$(systemctl show --value --property Result zrnserve)" = success ] || fail "the server did not end well"
