#!/usr/bin/env bash
# What the scripts say to who asks or waits: each explains itself without installing or building anything, and none
# that works is silent.
set -euo pipefail

stubs=$(mktemp -d)
trap 'rm -rf "$stubs"' EXIT
for command in cmake ninja apt-get dpkg-query sudo; do
    printf '#!/bin/sh\necho "%s" >>"%s/called"\nexit 1\n' "$command" "$stubs" >"$stubs/$command"
    chmod +x "$stubs/$command"
done

failed=0
complain() {
    echo "$1" >&2
    failed=1
}
for script in "$SOURCE_DIR"/scripts/*; do
    { [ -f "$script" ] && [ -x "$script" ]; } || continue
    said=$(PATH=$stubs:$PATH "$script" --help </dev/null 2>&1) || complain "${script##*/} --help: status $?"
    grep -q "${script##*/}" <<<"$said" || complain "${script##*/} --help does not name its command: $said"
done
[ ! -e "$stubs/called" ] || complain "--help calls $(sort -u "$stubs/called" | tr '\n' ' ')"

# shellcheck source=scripts/lib/show.sh
. "$SOURCE_DIR/scripts/lib/show.sh"
said=$(with_progress "Building" sh -c 'echo "[3/7] one of them"; sleep 5' 2>&1)
grep -q '^Building: 3 of 7, [0-9]* s$' <<<"$said" || complain "no progress: $said"
said=$(with_progress "Installing" sh -c 'echo "pmstatus:cmake:45.2:Unpacking cmake"; exit 3' 2>&1) && complain "a failure is lost"
grep -q 'Installing: failed with status 3' <<<"$said" || complain "no failure: $said"
grep -q 'Unpacking cmake' <<<"$said" || complain "a command that fails has said nothing: $said"
said=$( (echo first; sleep 5; echo last) | keep_telling "testing")
tr '\n' ' ' <<<"$said" | grep -qE '^first (\.\.\. testing, [0-9]+ s )+last $' || complain "not told: $said"

# A bare root is unpacked for longer than anybody waits in silence.
mkdir -p "$stubs/root/cache/zrncamera"
touch "$stubs/root/cache/zrncamera/root-$(. /etc/os-release && echo "$VERSION_CODENAME").tar"
for command in mount umount chroot cp find; do
    printf '#!/bin/sh\n' >"$stubs/root/$command"
done
printf '#!/bin/sh\nsleep 5\n' >"$stubs/root/tar"
printf '#!/bin/sh\nexec "$@"\n' >"$stubs/root/sudo"
chmod +x "$stubs"/root/{mount,umount,chroot,cp,find,tar,sudo}
said=$(PATH=$stubs/root:$PATH XDG_CACHE_HOME=$stubs/root/cache \
    "$SOURCE_DIR/packaging/in-clean-root" "$stubs" "$SOURCE_DIR/packaging/use-packages" 2>&1) ||
    complain "in-clean-root: status $?: $said"
grep -q '^Unpacking the bare root: [0-9]* s$' <<<"$said" || complain "a silent unpacking: $said"
exit "$failed"
