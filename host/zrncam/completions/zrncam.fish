# fish completion for zrncam: install as ~/.config/fish/completions/zrncam.fish. What fits is known to zrncam
# itself.

function __zrncam_offers
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    for offer in (command $words[1] __complete $words[2..-1] "$current" 2>/dev/null)
        switch $offer
            case :files
                __fish_complete_path (string replace -r '^--[^=]*=' '' -- "$current")
            case :folders
                __fish_complete_directories (string replace -r '^--[^=]*=' '' -- "$current")
            case '*'
                echo $offer
        end
    end
end

complete -c zrncam -f -a '(__zrncam_offers)'
