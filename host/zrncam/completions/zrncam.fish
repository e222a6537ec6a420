# fish completion for zrncam: install as ~/.config/fish/completions/zrncam.fish

set -l commands list info exposure gain grab stream get set properties command doctor verify
set -l keys BGain CacheFrameCount CapturePeriod EnableCheckExposureTime EnableCheckGain FrameRate GBGain \
    GRGain Gamma HeartBeat Hue MaxGrabWaitTime RGain ResolutionIndex ResolutionList SensorCount Serial Sharp
set -l writable BGain CacheFrameCount CapturePeriod EnableCheckExposureTime EnableCheckGain GBGain GRGain \
    Gamma Hue MaxGrabWaitTime RGain ResolutionIndex Sharp

complete -c zrncam -f
complete -c zrncam -s h -l help -d 'Print help'
complete -c zrncam -l version -d 'Print the version'
complete -c zrncam -l json -d 'Write the result as one JSON document'
complete -c zrncam -s v -l verbose -d 'Show what the driver prints and logs'
complete -c zrncam -s q -l quiet -d 'Show no progress'
complete -c zrncam -l plugin -r -F -d 'Driver plugin to load'
complete -c zrncam -l serial -x -d 'Choose the camera by its serial'
complete -c zrncam -l index -x -d 'Choose the camera by its index'
complete -c zrncam -l virtual -d 'Run on a virtual camera' \
    -a '(zrnsim --list-models 2>/dev/null | string split -f 1 " ")'

set -l first "not __fish_seen_subcommand_from $commands"
complete -c zrncam -n $first -a list -d 'List the cameras'
complete -c zrncam -n $first -a info -d 'Show what a camera is and how it is set'
complete -c zrncam -n $first -a exposure -d 'Show or set the exposure time'
complete -c zrncam -n $first -a gain -d 'Show or set the gain'
complete -c zrncam -n $first -a grab -d 'Grab frames and write their images'
complete -c zrncam -n $first -a stream -d 'Stream for a while and measure'
complete -c zrncam -n $first -a get -d 'Read a property'
complete -c zrncam -n $first -a set -d 'Write a property'
complete -c zrncam -n $first -a properties -d 'Show every property'
complete -c zrncam -n $first -a command -d 'Run a command of the camera'
complete -c zrncam -n $first -a doctor -d 'Find out why a camera cannot be used'
complete -c zrncam -n $first -a verify -d 'Check camera and driver against the host contract'

complete -c zrncam -n '__fish_seen_subcommand_from grab' -s n -l frames -x -d 'How many frames'
complete -c zrncam -n '__fish_seen_subcommand_from grab' -s o -l output -x -a '(__fish_complete_directories)' \
    -d 'Folder for the images'
complete -c zrncam -n '__fish_seen_subcommand_from grab' -l raw -d 'Write pixels and trailer as delivered'
complete -c zrncam -n '__fish_seen_subcommand_from stream' -l seconds -x -d 'How long'
complete -c zrncam -n '__fish_seen_subcommand_from stream' -l keep-alive -d 'Restart or reconnect'
complete -c zrncam -n '__fish_seen_subcommand_from grab stream' -l exposure -x -d 'Set the exposure time first'
complete -c zrncam -n '__fish_seen_subcommand_from grab stream' -l gain -x -d 'Set the gain first'
complete -c zrncam -n '__fish_seen_subcommand_from grab stream' -l wait -x -d 'Longest wait for one frame'
complete -c zrncam -n '__fish_seen_subcommand_from grab stream' -l newest -d 'Take the newest frame'
complete -c zrncam -n "__fish_seen_subcommand_from get; and not __fish_seen_subcommand_from $keys" -a "$keys"
complete -c zrncam -n "__fish_seen_subcommand_from set; and not __fish_seen_subcommand_from $writable" -a "$writable"
complete -c zrncam -n '__fish_seen_subcommand_from EnableCheckExposureTime EnableCheckGain; and __fish_seen_subcommand_from set' \
    -a 'true false'
complete -c zrncam -n '__fish_seen_subcommand_from command' -a ClearState
complete -c zrncam -n '__fish_seen_subcommand_from doctor' -l root -x -a '(__fish_complete_directories)' \
    -d 'Judge the system files under another folder'
complete -c zrncam -n '__fish_seen_subcommand_from verify' -l junit -r -F -d 'Write a JUnit report'
