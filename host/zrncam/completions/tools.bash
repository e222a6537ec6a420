# bash completion for zrnrec, zrnserve, zrnview, zrnsim and zrnsim-ctl, installed under each of these names: the options and
# subcommands that their --help shows, and files.

_zrn_tool()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} help word
    if [[ $current == = ]]; then current=""; fi
    if [[ $previous == = ]]; then previous=${COMP_WORDS[COMP_CWORD - 2]}; fi
    help=$("$1" --help 2>/dev/null)
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == [a-z]* && ${help#*Subcommands:} == *$'\n'"  $word "* && $help == *Subcommands:* ]]; then
            help=$("$1" "$word" --help 2>/dev/null)
        fi
    done
    if [[ $previous == --camera || $previous == --virtual ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(zrnsim --list-models 2>/dev/null | cut -d ' ' -f 1)" -- "$current")
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(sed -nE 's/^  (-[a-z],)?(--[a-z0-9-]+).*/\2/p' <<<"$help")" -- "$current")
    elif [[ $help == *Subcommands:* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(sed -nE '/^Subcommands:/,$ s/^  ([a-z]+) .*/\1/p' <<<"$help")" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        compopt -o filenames
    fi
}

complete -F _zrn_tool zrnrec zrnserve zrnview zrnsim zrnsim-ctl
