# shellcheck shell=bash
# How the scripts talk to who waits for them. To be sourced.

# help_on_request ARGUMENT...: prints the comment that the script begins with and ends it, when --help is among the
# arguments before a "--".
help_on_request() {
    local argument
    for argument in "$@"; do
        case $argument in
            --help | -h)
                sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$(dirname "${BASH_SOURCE[0]}")/../$(basename "$0")"
                exit 0
                ;;
            --) return ;;
        esac
    done
}

# How far a command is, by the end of what it has said: Ninja's, apt's or CMake's.
progress_of() {
    tail -c 4000 "$1" | tr '\r' '\n' | awk -F : '
        match($0, /^ *\[[0-9]+\/[0-9]+\]/) { split(substr($0, RSTART, RLENGTH), n, /[^0-9]+/); told = n[2] " of " n[3] }
        /^(dl|pm)status:/ { told = int($3) " %, " $4 }
        /^-- / { told = substr($0, 4) }
        END { print told }'
}

# with_progress LABEL COMMAND...: runs a command whose output nobody reads while it works. On a terminal one line says
# how far it is, elsewhere a plain line every four seconds. What it has said is shown when it fails.
with_progress() {
    local label=$1 log display status=0 since=$SECONDS
    shift
    log=$(mktemp)
    show_progress "$label" "$log" &
    display=$!
    "$@" >"$log" 2>&1 </dev/null || status=$?
    end_progress "$display"
    if [ "$status" -ne 0 ]; then
        tail -n 80 "$log" >&2
        echo "$label: failed with status $status after $((SECONDS - since)) s" >&2
    elif [ $((SECONDS - since)) -gt 1 ]; then
        echo "$label: done in $((SECONDS - since)) s" >&2
    fi
    rm -f "$log"
    return "$status"
}

# show_progress LABEL LOG: for the background, until end_progress PID.
end_progress() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
    [ ! -t 2 ] || printf '\r\033[K' >&2
}
show_progress() {
    local label=$1 log=$2 since=$SECONDS pause=4 line never
    [ ! -t 2 ] || pause=0.5
    # Nothing ever comes from there: a sleep would outlive this process, with the caller's output open.
    exec {never}<> <(:)
    # A script that is interrupted leaves this process behind.
    while read -r -t "$pause" -u "$never" || [ -d "/proc/$$" ]; do
        line="$label: $(progress_of "$log"), $((SECONDS - since)) s"
        line=${line/: , /: }
        if [ -t 2 ]; then
            printf '\r\033[K%.*s' "$(($(tput cols 2>/dev/null || echo 80) - 1))" "$line" >&2
        else
            echo "$line" >&2
        fi
    done
    [ -d "/proc/$$" ] || rm -f "$log"
}

# keep_telling LABEL: passes its input on, and adds a line where that has been silent for four seconds. It ends with its
# input, whatever signal ends what comes before it.
keep_telling() {
    local line since=$SECONDS result erase='' end='\n'
    [ ! -t 1 ] || erase='\r\033[K' end=''
    trap '' INT TERM
    while true; do
        result=0
        IFS= read -r -t 4 line || result=$?
        if [ "$result" -eq 0 ]; then
            printf "$erase%s\n" "$line"
        elif [ "$result" -gt 128 ]; then
            [ -z "$line" ] || printf "$erase%s\n" "$line"
            printf "$erase... %s, %d s$end" "$1" $((SECONDS - since))
        else
            printf "$erase%s" "$line"
            return
        fi
    done
}
