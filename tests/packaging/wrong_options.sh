#!/usr/bin/env bash
# Every installed program answers an option that it does not know with status 2, and tells its version:
# wrong_options.sh PREFIX
set -euo pipefail
prefix=$1

failed=0
for program in "$prefix"/bin/*; do
    status=0
    QT_QPA_PLATFORM=offscreen "$program" --no-such-option >/dev/null 2>&1 || status=$?
    [ "$status" -eq 2 ] || { echo "${program##*/}: status $status" >&2; failed=1; }
    version=$("$program" --version) || true
    [[ $version == "${program##*/} "[0-9]* ]] || { echo "${program##*/} --version: $version" >&2; failed=1; }
done
exit "$failed"
