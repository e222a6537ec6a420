#!/bin/sh
# An ordinary user may not open the camera until the udev rule is there; with it, the user at the
# machine may, and with the group in it, members of that as well: udev_rule.sh ZRNCAM ZRNSIM_CTL RULES
set -eu
zrncam=$1
ctl=$2
packaged=$3
here=$(dirname "$0")
rule=/etc/udev/rules.d/70-zrncamera.rules
trap 'rm -rf "$rule" /run/systemd/seats' EXIT

as_user() {
    /usr/bin/setpriv --reuid=user --regid=user --clear-groups "$@"
}

rule_in_remedy() {
    as_user "$zrncam" doctor --json |
        jq -r '.findings[] | select(.subject == "permission") | .remedy' |
        sed -n 's/.*\(SUBSYSTEM==.*"\) into .*/\1/p'
}

replug() {
    udevadm control --reload
    "$ctl" unplug camera=0
    while ls /sys/bus/usb/devices/*-*:1.1 > /dev/null 2>&1; do sleep 0.1; done
    "$ctl" plug camera=0
    until ls /sys/bus/usb/devices/*-*:1.1 > /dev/null 2>&1; do sleep 0.1; done
    udevadm settle
}

# What a session manager notes about the user at the machine, for udev to read.
mkdir -p /run/systemd/seats
printf 'ACTIVE=1\nACTIVE_UID=1000\n' > /run/systemd/seats/seat0

echo "without the rule"
as_user "$here/doctor.sh" "$zrncam" bus=ok permission=problem enumeration=problem
if as_user "$zrncam" list; then
    echo "the camera could be opened"
    exit 1
fi

# What the packages install is what the doctor tells people to write.
grep -qxF "$(rule_in_remedy)" "$packaged"
mkdir -p "${rule%/*}"
cp "$packaged" "$rule"
replug

echo "with the rule"
as_user "$here/doctor.sh" "$zrncam" bus=ok permission=ok enumeration=ok
as_user "$zrncam" list

echo "without anybody at the machine"
rm /run/systemd/seats/seat0
replug
as_user "$here/doctor.sh" "$zrncam" permission=problem
rule_in_remedy > "$rule"
grep -q 'GROUP="plugdev", MODE="0660"$' "$rule"
replug

echo "with the group's rule"
as_user "$zrncam" doctor --json | grep -q 'members of the group plugdev may'
/usr/bin/setpriv --reuid=user --regid=user --groups=plugdev \
    "$here/doctor.sh" "$zrncam" bus=ok permission=ok enumeration=ok
