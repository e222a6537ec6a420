# fish completion for zrnrec, zrnserve, zrnview, zrnsim and zrnsim-ctl, installed under each of these names: the options and
# subcommands that their --help shows, and files.

function __zrn_tool_offers
    set -l words (commandline -opc)
    set -l help ($words[1] --help 2>/dev/null)
    set -l begin (contains -i -- 'Subcommands:' $help)
    set -l subcommands
    if test -n "$begin"
        set subcommands (string replace -rf '^  ([a-z]+) +(.*)$' '$1\t$2' -- $help[$begin..-1])
    end
    for word in $words[2..-1]
        if string match -q -- "$word"\t'*' $subcommands
            set help ($words[1] $word --help 2>/dev/null)
            set subcommands
        end
    end
    switch (commandline -ct)
        case '-*'
            string replace -rf '^  (?:-[a-z],)?(--[a-z0-9-]+).*$' '$1' -- $help
        case '*'
            if contains -- $words[-1] --camera --virtual
                zrnsim --list-models 2>/dev/null | string replace -r ' +' \t
            else
                printf '%s\n' $subcommands
            end
    end
end

for program in zrnrec zrnserve zrnview zrnsim zrnsim-ctl
    complete -c $program -a '(__zrn_tool_offers)'
end
