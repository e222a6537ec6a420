# bash completion for zrncam: source this file, or install it as
# /usr/share/bash-completion/completions/zrncam. What fits is known to zrncam itself.

_zrncam()
{
    local current=${COMP_WORDS[COMP_CWORD]} word offer is_joined=""
    local -a words=()
    # bash makes three words of --option=value.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [[ ${#words[@]} -gt 0 && ($word == = || $is_joined) ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
        [[ $word == = ]] && is_joined=1 || is_joined=""
    done
    [[ $current != = ]] || current=""

    COMPREPLY=()
    while IFS= read -r offer; do
        case $offer in
            :files) mapfile -t COMPREPLY < <(compgen -f -- "$current"); compopt -o filenames ;;
            :folders) mapfile -t COMPREPLY < <(compgen -d -- "$current"); compopt -o filenames ;;
            *) offer=${offer%%$'\t'*}; COMPREPLY+=("$current${offer#"${words[-1]}"}") ;;
        esac
    done < <("$1" __complete "${words[@]}" 2>/dev/null)
}

complete -F _zrncam zrncam
