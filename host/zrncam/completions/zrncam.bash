# bash completion for zrncam: source this file, or install it as
# /usr/share/bash-completion/completions/zrncam

_zrncam()
{
    local commands="list info exposure gain grab stream get set properties command doctor verify"
    local keys="BGain CacheFrameCount CapturePeriod EnableCheckExposureTime EnableCheckGain FrameRate
        GBGain GRGain Gamma HeartBeat Hue MaxGrabWaitTime RGain ResolutionIndex ResolutionList
        SensorCount Serial Sharp"
    local writable="BGain CacheFrameCount CapturePeriod EnableCheckExposureTime EnableCheckGain GBGain
        GRGain Gamma Hue MaxGrabWaitTime RGain ResolutionIndex Sharp"
    local global="--help --version --json --verbose --quiet --plugin --serial --index --virtual"
    local capture="--exposure --gain --wait --newest"

    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    # bash makes three words of --option=value.
    local is_joined=""
    if [[ $current == = ]]; then
        current="" is_joined=1
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]} is_joined=1
    fi
    local command="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done

    local words=""
    case $previous in
        --plugin | --junit) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
        --root | -o | --output) mapfile -t COMPREPLY < <(compgen -d -- "$current"); return ;;
        --virtual) words=$(zrnsim --list-models 2>/dev/null | cut -d ' ' -f 1) ;;
        get) words=$keys ;;
        set) words=$writable ;;
        command) words=ClearState ;;
        EnableCheckExposureTime | EnableCheckGain) words="true false" ;;
        --serial | --index | --exposure | --gain | --wait | --seconds | -n | --frames) return ;;
    esac
    if [[ $current == -* ]]; then
        words=$global
        case $command in
            grab) words+=" --frames --output --raw $capture" ;;
            stream) words+=" --seconds --keep-alive $capture" ;;
            doctor) words+=" --root" ;;
            verify) words+=" --junit" ;;
        esac
    elif [[ -z $command && -z $is_joined ]]; then
        words+=" $commands"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _zrncam zrncam
