#!/bin/sh
# What `zrncam doctor` says in the guest: doctor.sh ZRNCAM SUBJECT=VERDICT...
set -u
zrncam=$1
shift
report=$("$zrncam" doctor --json)
echo "$report"
failed=0
for expected in "$@"; do
    subject=${expected%=*}
    verdict=$(echo "$report" |
        jq -r --arg subject "$subject" '[.findings[] | select(.subject == $subject)][0].verdict')
    [ "$verdict" = "${expected#*=}" ] || { echo "$subject is $verdict, not ${expected#*=}"; failed=1; }
done
exit "$failed"
