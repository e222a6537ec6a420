#!/usr/bin/env bash
# Every installed program has a manual page that is well formed and names every option that the program's
# help names: manual_pages.sh PREFIX
set -euo pipefail
prefix=$1

# help PROGRAM [COMMAND]: empty for a program without that help.
help() {
    QT_QPA_PLATFORM=offscreen "$@" --help 2>&1
}

failed=0
for program in "$prefix"/bin/*; do
    name=${program##*/}
    page=$prefix/share/man/man1/$name.1
    [ -f "$page" ] || { echo "$name: no manual page" >&2; failed=1; continue; }
    mandoc -Tlint -Wwarning "$page" || failed=1

    manual=$(mandoc -Tutf8 "$page" | col -b)

    texts=$(help "$program")
    for command in $(sed -n '/^Subcommands:/,$s/^  \([a-z]\+\) .*/\1/p' <<<"$texts"); do
        texts+=$'\n'$(help "$program" "$command")
        grep -qw -- "$command" <<<"$manual" ||
            { echo "$name: the manual page does not name the command $command" >&2; failed=1; }
    done
    for option in $(sed -n 's/^  \(-[a-z],\)\?--\([a-z0-9-]\+\).*/\2/p' <<<"$texts" | sort -u); do
        grep -q -- "--$option\b" <<<"$manual" ||
            { echo "$name: the manual page does not name --$option" >&2; failed=1; }
    done
done
exit "$failed"
