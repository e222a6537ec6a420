# shellcheck shell=bash disable=SC2154
# The virtual machine behind scripts/vm, in the folder that ZRN_VM names. To be sourced; starting it
# takes the variables of scripts/vm: parts, memory, kernel_args, log.
#   start_machine PATH...      boots a guest that has these files and folders
#   run_job JOB SECONDS        runs a job in the guest, with its output and exit status
#   stop_machine

boot_limit=300
camera_ports=8
# QEMU adds a hub when only one port is left.
usb_ports=$((camera_ports + 1))

# A line from the guest; fails when the guest has died or the seconds are over.
read_line() {
    local line end=$((SECONDS + $1))
    while [ "$SECONDS" -lt "$end" ]; do
        if IFS= read -r -t 1 line <&5; then
            printf '%s\n' "$line"
            return
        fi
        is_running || return 1
    done
    return 1
}

start_machine() {
    local run=$ZRN_VM kernel devices=() i
    kernel=$("$parts/kernel" "${ZRNCAMERA_VM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zrncamera-vm}")
    mkdir -p "$run"/{usb,guest}
    cp "$parts/init" "$run/guest/init"
    # The folder where the commands will run may hold nothing that was asked for.
    mkdir -p "$run/guest$PWD"
    (cd "$run/guest" && find . | cpio --quiet -o -H newc -R 0:0) > "$run/guest.cpio"
    "$parts/files" "$run/files.cpio" /lib/systemd/systemd-udevd /usr/bin/udevadm \
        /lib/udev/rules.d /usr/bin/setpriv /usr/bin/socat "$@"
    cat "$kernel/base.cpio" "$run/guest.cpio" "$run/files.cpio" > "$run/initrd"

    # Each job's zrnsim makes the sockets anew, so QEMU looks for them again and again.
    for ((i = 0; i < camera_ports; ++i)); do
        devices+=(-chardev "socket,id=camera$i,path=$run/usb/camera$i,reconnect=1"
            -device "usb-redir,chardev=camera$i,bus=xhci.0")
    done
    mkfifo "$run/jobs.in" "$run/jobs.out"
    touch "$run/stdout" "$run/stderr"
    # Without ioeventfd what a job has written is here before its exit status is.
    setpriv --pdeathsig KILL qemu-system-x86_64 \
        -machine q35,accel=tcg -cpu max -smp 1 -m "$memory" \
        -nodefaults -no-user-config -no-reboot -display none -monitor none -nic none \
        -kernel "$kernel/vmlinux" -initrd "$run/initrd" -append "console=ttyS0 panic=-1 \
no_timer_check mitigations=off cryptomgr.notests ${kernel_args[*]}" \
        -serial "file:$run/console.log" \
        -device virtio-serial-pci,ioeventfd=off \
        -chardev "pipe,id=jobs,path=$run/jobs" -device virtserialport,chardev=jobs,name=jobs \
        -chardev "file,id=stdout,path=$run/stdout" \
        -device virtserialport,chardev=stdout,name=stdout \
        -chardev "file,id=stderr,path=$run/stderr" \
        -device virtserialport,chardev=stderr,name=stderr \
        -netdev "user,id=control,restrict=on,\
guestfwd=tcp:10.0.2.100:1-cmd:socat STDIO UNIX-CONNECT:$run/usb/control" \
        -device virtio-net-pci,netdev=control,romfile= \
        -device "qemu-xhci,id=xhci,p2=$usb_ports,p3=$usb_ports" "${devices[@]}" \
        < /dev/null > "$run/qemu.log" 2>&1 &
    echo $! > "$run/pid"
    disown # it is killed in the end, which the shell need not report
    exec 5<> "$run/jobs.out"
    if ! read_line "$boot_limit" > /dev/null; then
        mkdir -p "$log"
        cp "$run"/{console,qemu}.log "$log"
        echo "vm: the guest did not boot; see $log/console.log" >&2
        tail -n 15 "$run/console.log" "$run/qemu.log" >&2
        return 125
    fi
}

# A command whose output is shown as it comes until the guest has told its exit status.
run_job() {
    local run=$ZRN_VM stdout_at stderr_at status copies=()
    is_running || { echo "vm: the machine has ended" >&2; return 125; }
    stdout_at=$(($(stat -c %s "$run/stdout") + 1))
    stderr_at=$(($(stat -c %s "$run/stderr") + 1))
    exec 5<> "$run/jobs.out"
    # Ends with this process, whatever ends that, and the copies with it.
    setpriv --pdeathsig TERM sleep infinity &
    local running=$!
    tail -s 0.1 --pid="$running" -c "+$stdout_at" -f "$run/stdout" &
    copies+=($!)
    tail -s 0.1 --pid="$running" -c "+$stderr_at" -f "$run/stderr" >&2 &
    copies+=($!)
    base64 -w 0 "$1" | sed 's/$/\n/' > "$run/jobs.in"
    # The guest has a time limit of its own and says where the command hangs.
    if ! status=$(read_line $(($2 + 120))); then
        echo "vm: the guest does not answer any more" >&2
        # What it may yet say of this job must not be taken for the next one's status.
        stop_machine
        status=125
    fi
    kill "$running"
    wait "${copies[@]}"
    return "$status"
}

is_running() {
    [ -e "$ZRN_VM/pid" ] && kill -0 "$(cat "$ZRN_VM/pid")" 2>/dev/null
}

# Returns when it has ended.
stop_machine() {
    while is_running; do
        kill -KILL "$(cat "$ZRN_VM/pid")" 2>/dev/null || true
        sleep 0.1
    done
    rm -f "$ZRN_VM/pid"
}
