#!/usr/bin/env bash
# What zrnsim and zrnsim-ctl do not understand they refuse with a sentence: refusals.sh ZRNSIM ZRNSIM_CTL
set -euo pipefail
zrnsim=$1
export ZRNSIM_CTL=$2
failed=0

# refuses STATUS SENTENCE COMMAND...
refuses() {
    local status=0 said
    said=$("${@:3}" 2>&1) || status=$?
    if [ "$status" -ne "$1" ] || ! grep -qF "$2" <<<"$said" || grep -q 'json\.exception' <<<"$said"; then
        echo "${*:3}: status $status, $said" >&2
        failed=1
    fi
}
tell() {
    "$zrnsim" -- sh -c '"$ZRNSIM_CTL" "$@"' sh "$@"
}

refuses 1 'there is no field \"cuont\"; there are camera, ' tell emit cuont=1
refuses 1 'count: \"many\" is not a whole number' tell emit count=many
refuses 1 'there is no command \"dance\"' tell dance
refuses 2 "'count' is given twice" tell emit count=1 count=2
refuses 2 'not in UTF-8' tell set-control control=$'\xff'
refuses 2 'cannot connect to the control socket /none' "$ZRNSIM_CTL" --socket /none counters
exit "$failed"
