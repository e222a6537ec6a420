#!/usr/bin/env bash
# systemd takes the units, finds their programs, confines and enables them, and makes their user a member of the cameras' group.
set -euo pipefail
command -v systemd-analyze >/dev/null || { echo "systemd-analyze is not installed"; exit 77; }
made=$BUILD_DIR/made

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
units=$root/etc/systemd/system
mkdir -p "$units"
cp "$made"/*.service "$units"
# What the units rely on.
for unit in basic shutdown sysinit network-online; do
    printf '[Unit]\nDescription=%s\n' "$unit" >"$units/$unit.target"
done
printf '[Unit]\nDescription=slice\n[Slice]\n' | tee "$units/system.slice" >"$units/system-zrncam\\x2drecord.slice"
for program in $(sed -n 's/^ExecStart=\([^ ]*\).*/\1/p' "$made"/*.service); do
    mkdir -p "$root${program%/*}"
    install -m 755 /dev/null "$root$program"
done

failed=0
for unit in zrnserve.service zrncam-record@ZR1001.service; do
    said=$(systemd-analyze verify --man=no --root="$root" "$unit" 2>&1) || failed=1
    said+=$(systemd-analyze security --offline=yes --threshold=25 --root="$root" "$unit" 2>&1 ) || failed=1
    grep -E "$unit:[0-9]|exposure level|not executable" <<<"$said"
    ! grep -q "$unit:[0-9]" <<<"$said" || failed=1
    systemctl --quiet --root="$root" enable "$unit"
    [ -L "$units/multi-user.target.wants/$unit" ]
done
systemd-sysusers --root="$root" "$made/zrncamera.conf"
grep -q '^zrncamera:' "$root/etc/passwd"
grep -q '^plugdev:.*:zrncamera$' "$root/etc/group"
exit "$failed"
