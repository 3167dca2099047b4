#!/bin/bash
# Boots the emulated board on a flash file and runs jobs on it, or opens its console.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
cache=$(dirname "$here")/.cache/board
. "$here/../scripts/run-control.sh"

# This script's own exit statuses. Any other is the job's.
readonly reset_status=75 board_status=76 usage_status=2
readonly vfat_modules=vfat,nls_ascii,nls_cp437,nls_iso8859-1

usage() {
    cat <<'END'
usage: board/run.sh [options] FLASH [-- COMMAND...]

Boots the board on the 16 MiB flash file FLASH. Creates a blank one if it is missing. The file keeps
its contents. Runs COMMAND on the board, or one job per boot. Without either, opens the console
(leave it with 'reboot').

  --install DIR      copies the tree DIR over the board's root
  --put FILE:PATH    puts FILE on the board as PATH
  --job SCRIPT       runs a shell script; each further --job runs on the next boot of the same flash
  --modules A,B      loads more kernel modules
  --devices PROGRAM  adds the board's own devices. PROGRAM (board_devices) serves them and logs their
                     requests to /run/devices.log
  --serial LINE      connects /dev/ttyAMA1, the second time /dev/ttyAMA2; LINE as for QEMU's -serial
  --sd FILE          an image in the SD slot, --usb FILE one in the USB slot; discards writes
  --kept-sd FILE     an image in the SD slot; keeps writes
  --web COMMAND      a network whose only other host is the web server 10.0.2.100; COMMAND serves each
                     connection on its standard input and output
  --log-times        puts the time since the start in front of each line, in seconds
  --console FILE     keeps the kernel's messages in FILE
  --timeout SECONDS  the longest time for one boot (default 240)
  --count-time       advances the board's clock by 4 ns for each instruction, on one processor. The
                     board's times then do not depend on the host's load
  --cut TEXT:SECONDS cuts the power once, SECONDS after the first line with TEXT
  --record DIR       keeps every write to the flash and to the card of --kept-sd: for boot N, N.flash and
                     N.card in the kernel's dm-log-writes format, and N.order, the order of both
  --recovery         starts the recovery kernel, whatever is in flash

The jobs' output goes to standard output. Lines of the board's system log begin with 'log: '. The exit
status is the last job's, or 75 if the board was reset during the last job, or 76 if it did not boot
or hung. A job that fails ends the run. After a reset or a power cut in a job, the next job runs. If
the start-up scripts reset the board before its job, the same job runs in the next boot.
END
}

wrong_usage() {
    usage >&2
    exit "$usage_status"
}

fail() {
    echo "board: $1" >&2
    exit "${2:-$board_status}"
}

parse() {
    jobs=()
    modules=
    extras=()
    cut=
    record=
    recovery=
    kept_card=
    log_times=
    clock=(-accel "tcg,thread=multi")
    parameters="quiet panic=1 vmalloc=640M"
    limit=240
    console=$work/console
    mkdir -p "$work/overlay/job"
    install -D -t "$work/overlay/sbin" "$here"/../integration/*upgrade* "$here/../integration/second-checksum"
    while [[ ${1:-} == -* && $1 != -- ]]; do
        case $1 in
        --log-times) log_times=yes && shift && continue ;;
        --recovery) recovery=yes && shift && continue ;;
        --count-time)
            clock=(-accel "tcg,thread=single" -icount shift=2)
            parameters+=" maxcpus=1"
            shift && continue
            ;;
        --help) usage && exit 0 ;;
        esac
        [ $# -ge 2 ] || wrong_usage
        case $1 in
        --install) cp -a "$2/." "$work/overlay/" ;;
        --put) install -D "${2%:*}" "$work/overlay/${2##*:}" ;;
        --job) jobs+=("$2") ;;
        --modules) modules+=,$2 ;;
        --devices) modules+=,cuse && install -D "$2" "$work/overlay/sbin/board_devices" ;;
        --serial) extras+=(-serial "$2") ;;
        --sd)
            modules+=,sdhci-of-aspeed,$vfat_modules
            extras+=(-drive "if=sd,$(drive_file "$2"),format=raw,index=2,snapshot=on")
            ;;
        --kept-sd) modules+=,sdhci-of-aspeed,$vfat_modules && kept_card=$2 ;;
        --usb)
            modules+=,ehci_platform,usb_storage,sd_mod,$vfat_modules
            extras+=(-drive "id=usb,if=none,$(drive_file "$2"),format=raw,snapshot=on"
                -device "usb-storage,drive=usb")
            ;;
        --web)
            modules+=,mdio-aspeed,realtek,ftgmac100
            extras+=(-nic "user,restrict=on,guestfwd=tcp:10.0.2.100:80-cmd:${2//,/,,}")
            ;;
        --console) console=$2 ;;
        --timeout) limit=$2 ;;
        --cut) cut=$2 ;;
        --record) record=$2 && mkdir -p "$2" ;;
        *) wrong_usage ;;
        esac || fail "$1 $2: failed" "$usage_status"
        shift 2
    done
    [[ ${1:---} != -- ]] || wrong_usage
    flash=$1
    shift
    [ "${1:-}" != -- ] || shift
    if [ $# -gt 0 ]; then
        printf '%q ' "$@" >"$work/command"
        jobs+=("$work/command")
    fi
}

# drive_file FILE: prints the emulator's option for a file of any name. After a slash, a colon does not
# start a protocol.
drive_file() {
    local path
    path=$(realpath -- "$1")
    echo "file=${path//,/,,}"
}

# kept_drive FILE NAME: prints the emulator's option for a file that keeps what is written to it.
kept_drive() {
    if [ -z "$record" ]; then
        echo "$(drive_file "$1"),format=raw"
        return
    fi
    : >"$record/$boot.$2"
    echo "driver=blklogwrites,file.driver=raw,file.file.driver=file,file.file.filename=$(realpath "$1"),log.driver=file,log.filename=$(realpath "$record")/$boot.$2"
}

# The boot loader: takes the kernel in flash if its checksums are right, else the recovery kernel.
load_kernel() {
    local start size data_size
    read -r start size < <(awk '$1 == "kernel" { print $2, $3 }' "$cache/partitions")
    data_size=$(od -An -tu4 --endian=big -j $((start + 12)) -N 4 "$flash")
    rm -f "$work/kernel"
    if [ -z "$recovery" ] && [ $((data_size + 64)) -le $((size)) ]; then
        tail -c +$((start + 1)) "$flash" | head -c $((data_size + 64)) >"$work/uimage" || true
        dumpimage -T kernel -p 0 -o "$work/kernel" "$work/uimage" >/dev/null 2>&1 || true
    fi
    if [ -f "$work/kernel" ]; then
        say "boot loader: kernel '$(dumpimage -l "$work/uimage" | sed -n 's/^Image Name: *//p')' from flash"
    else
        cp "$cache/vmlinuz" "$work/kernel"
        say "boot loader: no valid kernel in flash, recovery kernel"
    fi
}

# qemu SERIAL...: runs one boot. The first serial line is the console.
qemu() {
    local arguments=(-M "ast2600-evb,fmc-model=s25sl12801" -m 1G "${clock[@]}"
        -kernel "$work/kernel" -initrd "$work/initrd" -dtb "$cache/board.dtb"
        -append "console=ttyS4,115200n8 $parameters board.modules=$modules"
        -drive "$(kept_drive "$flash" flash),if=mtd" -display none -monitor none -nic none -no-reboot
        -pidfile "$work/pid")
    [ -z "$kept_card" ] || arguments+=(-drive "$(kept_drive "$kept_card" card),if=sd,index=2")
    [ -z "$record" ] || arguments+=(-trace "enable=blk_co_pwritev,file=$record/$boot.order")
    exec timeout --foreground -k 2 "$limit" qemu-system-arm "${arguments[@]}" "$@" 2>"$work/qemu"
}

make_initrd() {
    (cd "$work/overlay" && find . -print0 | cpio --quiet -0 -o -H newc -R 0:0) >"$work/overlay.cpio"
    cat "$cache/root.cpio" "$work/overlay.cpio" >"$work/initrd"
}

# Prints the lines of start-up and job until the emulator ends. Leaves the job's status in $work/rc.
relay() {
    local line rc=none
    while IFS= read -r line; do
        line=${line%$'\r'}
        case $line in
        '##START') rc=again && continue ;;
        '##BEGIN') rc=reset && continue ;;
        '##RC '*) rc=${line#'##RC '} && continue ;;
        esac
        [ "$rc" != none ] || continue
        say "$line"
        [ -z "$cut" ] || [[ $line != *"${cut%:*}"* ]] || cut_power "${cut##*:}"
    done
    echo "$rc" >"$work/rc"
}

# cut_power SECONDS: kills the emulator then. Only writes up to this moment are in the flash file.
cut_power() {
    cut=
    (sleep "$1" && touch "$work/cut" && kill -9 "$(cat "$work/pid")") </dev/null >/dev/null 2>&1 &
}

say() {
    local past=$((${EPOCHREALTIME/./} - started))
    [ -z "$log_times" ] || printf '%4d.%03d ' $((past / 1000000)) $((past / 1000 % 1000))
    printf '%s\n' "$1"
}

# boot JOB: boots once and runs a job. Leaves its status in $status: a number, 'reset', or 'again' if
# the board was reset before the job.
boot() {
    boot=$((${boot:-0} + 1))
    install -m 644 "$1" "$work/overlay/job/run"
    make_initrd
    load_kernel
    local ended=0
    (qemu -serial "file:$console" -serial stdio "${extras[@]}" </dev/null) | relay || ended=$?
    status=$(cat "$work/rc")
    if [ -e "$work/cut" ]; then
        rm "$work/cut"
        cut=
        status=reset
        say "board: power cut"
        return
    fi
    [ "$ended" -ne 124 ] || hang "the board did not end within $limit seconds"
    [ "$ended" -eq 0 ] || hang "the emulator ended with status $ended"
    [ "$status" != none ] || hang "the board did not start its job"
}

hang() {
    tail -n 15 "$console" "$work/qemu" >&2 || true
    fail "$1"
}

run_jobs() {
    local job boots
    for job in "${jobs[@]}"; do
        boots=1
        boot "$job"
        while [ "$status" = again ]; do
            [ $((boots += 1)) -le 20 ] || hang "every boot is reset before its job"
            boot "$job"
        done
        [ "$status" = reset ] || [ "$status" -eq 0 ] || exit "$status"
    done
    [ "$status" != reset ] || { echo "board: reset" && exit "$reset_status"; }
}

main() {
    work=$(mktemp -d)
    on_exit rm -rf "$work"
    started=${EPOCHREALTIME/./}
    parse "$@"
    [ -f "$cache/fingerprint" ] || fail "no image; run board/build-image.sh first"
    [ -f "$flash" ] || head -c 16M /dev/zero | tr '\0' '\377' >"$flash"
    if [ ${#jobs[@]} -gt 0 ]; then
        run_jobs
    else
        rm -rf "$work/overlay/job"
        make_initrd
        load_kernel
        limit=0
        (qemu -serial mon:stdio -serial null "${extras[@]}")
    fi
}

main "$@"
