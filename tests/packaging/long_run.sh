#!/usr/bin/env bash
# A long set goes on where it was, adds its pieces up, and fails as long as one of them has failed.
set -euo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/bin"
# Takes the place of a piece: it says what it counted, and fails with the third seed.
cat >"$folder/bin/zrnsim" <<'END'
#!/bin/sh
printf '  unplugs       100\n  pulled during: a stop      %d\n  resident KiB   1 to 2   0.0 per hour\n' "$ZRN_SEED"
echo "what seed $ZRN_SEED says"
[ "$ZRN_SEED" -ne 3 ] || [ ! -e "$(dirname "$0")/fails" ]
END
chmod +x "$folder/bin/zrnsim"
long_run() {
    "$SOURCE_DIR/scripts/long-run" --build-folder "$folder" --results "$folder/results" "$@" >"$folder/said" 2>&1
}
failed=0
expect() {
    grep -qE "$2" "$1" || { echo "no line $2 in:" && cat "$1" && failed=1; }
}

long_run unplugs 200 || failed=1
expect "$folder/said" '^unplugs: 2 pieces'
expect "$folder/said" '^  unplugs +200$'
expect "$folder/said" '^  pulled during: a stop +3$'
[ "$(cut -f 2,4 "$folder/results/results.tsv" | tr '\t\n' '  ')" = "1 ok 2 ok " ] || failed=1

touch "$folder/bin/fails"
! long_run unplugs 400 || { echo "a piece that failed is none" && failed=1; }
expect "$folder/said" '^  unplugs +400$'
expect "$folder/said" '^  FAILED, seeds 3$'
expect "$folder/results/unplugs-3.log" 'what seed 3 says'
[ ! -e "$folder/results/unplugs-2.log" ] || failed=1

# Nothing is left to do, and the sum is what it was.
before=$(wc -l <"$folder/results/results.tsv")
! long_run unplugs 400 || { echo "the failure is forgotten" && failed=1; }
[ "$before" -eq "$(wc -l <"$folder/results/results.tsv")" ] || failed=1

! long_run --beside 3 unplugs 1000 || failed=1
expect "$folder/said" '^  unplugs +1[0-2]00$'
[ -z "$(cut -f 2 "$folder/results/results.tsv" | sort | uniq -d)" ] || failed=1

! long_run --seed 3 unplugs || failed=1
expect "$folder/said" 'what seed 3 says'
exit "$failed"
