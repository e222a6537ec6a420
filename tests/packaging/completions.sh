#!/usr/bin/env bash
# The installed completions, run by their shells, offer what fits: completions.sh PREFIX
set -euo pipefail
prefix=$1
PATH=$prefix/bin:$PATH
failed=0

# expect SHELL LINE OFFERED...: the offers for a line are these and no other.
expect() {
    local shell=$1 line=$2 offers expected
    shift 2
    offers=$("in_$shell" "$line" | sort)
    expected=$(printf '%s\n' "$@" | sort)
    [ "$offers" = "$expected" ] ||
        { printf '%s, "%s" offers:\n%s\n' "$shell" "$line" "$offers" >&2; failed=1; }
}

in_fish() {
    fish --no-config -c 'source $argv[1]; complete -C $argv[2]' \
        "$prefix/share/fish/vendor_completions.d/${1%% *}.fish" "$1" | cut -f 1
}

# As bash splits a line: at blanks and around "=".
in_bash() {
    read -ra COMP_WORDS <<<"${1//=/ = }"
    [[ $1 != *' ' ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    "$(complete -p "${COMP_WORDS[0]}" | sed -E 's/.* -F ([^ ]+) .*/\1/')" "${COMP_WORDS[0]}"
    printf '%s\n' "${COMPREPLY[@]}"
}
# shellcheck disable=SC1091
. "$prefix/share/bash-completion/completions/zrncam"
# shellcheck disable=SC1091
. "$prefix/share/bash-completion/completions/zrnrec"

compopt() { :; } # bash knows it only while it completes

# With stand-ins for the functions that show offers.
in_zsh() {
    zsh -f -c '
        _describe() { [[ -z ${(P)2} ]] || print -rl -- "${(@)${(@P)2}%%:*}"; }
        _files() { print -r -- "files $PREFIX"; }
        compset() { PREFIX=${PREFIX#*=}; }
        complete() {
            words=(${(z)1}) CURRENT=$#words
            [[ $1 != *" " ]] || { words+=(""); (( ++CURRENT )); }
            PREFIX=$words[CURRENT]
            source $2
        }
        complete $1 $2' - "$1" "$prefix/share/zsh/vendor-completions/$([[ $1 == zrncam* ]] && echo _zrncam || echo _zrn_tools)"
}

for shell in bash fish zsh; do
    expect "$shell" 'zrncam s' set settings stream
    expect "$shell" 'zrncam --virtual type2 --json s' set settings stream
    expect "$shell" 'zrncam --virtual=type2 s' set settings stream
    expect "$shell" 'zrncam stream --ke' --keep-alive
    expect "$shell" 'zrncam list --ke' ''
    expect "$shell" 'zrncam get Se' SensorCount Serial
    expect "$shell" 'zrncam set Se' ''
    expect "$shell" 'zrncam get Serial ' ''
    expect "$shell" 'zrncam set EnableCheckGain ' false true
    expect "$shell" 'zrncam command ' ClearState
    expect "$shell" 'zrncam settings ' save load
    expect "$shell" 'zrnrec v' verify
    expect "$shell" 'zrnrec export --co' --codec --count
    expect "$shell" 'zrnview --stop' --stopped
    expect "$shell" 'zrnsim --camera double' double-1308x1991 double-640x960
    expect "$shell" 'zrnsim --list' --list-models
    expect "$shell" 'zrnsim-ctl --so' --socket
done
expect bash 'zrncam --virtual=double' double-1308x1991 double-640x960
expect fish 'zrncam --virtual=double' --virtual=double-1308x1991 --virtual=double-640x960
expect zsh 'zrncam --virtual=double' --virtual=double-1308x1991 --virtual=double-640x960

# Files and folders are offered by the shells.
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/one"
touch "$folder/two"
expect bash "zrncam --plugin $folder/" "$folder/one" "$folder/two"
expect bash "zrncam --plugin=$folder/" "$folder/one" "$folder/two"
expect bash "zrncam grab -o $folder/" "$folder/one"
expect fish "zrncam --plugin $folder/" "$folder/one/" "$folder/two"
expect fish "zrncam grab -o $folder/" "$folder/one/"
expect zsh "zrncam --plugin $folder/" "files $folder/"
expect zsh "zrncam --plugin=$folder/" "files $folder/"
exit "$failed"
