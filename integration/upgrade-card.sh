# Sourced: the card, and the first line of the store. Start-up without an upgrade needs no more than this.
# shellcheck shell=sh disable=SC2034

. "${0%/*}/upgrade-store.conf"

# The store's first line: must start-up look further?
idle="upgrade-store: nothing to do"
busy="upgrade-store: an upgrade"

# say TEXT: prints it on the console and into the kernel's log, since the log daemon may not run yet.
say() {
    printf '%s\n' "${0##*/}: $1" # echo would read backslashes
    # Without this device, only on the console.
    [ ! -w /dev/kmsg ] || printf '<4>%s\n' "${0##*/}: $1" >/dev/kmsg
}

# own_mount DIR [DEVICE]: succeeds if DIR is a file system of its own, from this device. The last one there counts.
own_mount() {
    there=
    while read -r device place _; do
        [ "$place" != "$1" ] || there=$device
    done </proc/mounts
    [ -n "$there" ] && [ "$there" = "${2:-$there}" ]
}

# open_store OPTIONS: mounts the card unless it is already mounted.
mounted_here=
open_store() {
    own_mount "$mount_point" && return 0
    until [ -b "$card" ]; do
        [ $((card_wait -= 1)) -ge 0 ] || return
        sleep 1
    done
    mount_card "$1" || { check_card && mount_card "$1"; } && mounted_here=yes
}

# mount_card OPTIONS: a write that fails must show, and not make the card read-only.
mount_card() {
    mount -o "$1,errors=continue" "$card" "$mount_point" 2>/dev/null || mount -o "$1" "$card" "$mount_point"
}

close_store() {
    [ -z "$mounted_here" ] || umount "$mount_point"
}

# check_card: repairs what a power cut left in the card's file system, where the board has a tool for it.
check_card() {
    command -v fsck >/dev/null || return
    say "checking the card's file system"
    fsck -y "$card" >/dev/null 2>&1 || true # a repair is no success, and the mount shows the rest
}
