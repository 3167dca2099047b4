# Sourced by update-agent and fleet-agent after their settings: what the board runs and remembers, and how
# both start SWUpdate.
# shellcheck shell=sh disable=SC2154,SC3045 # the settings; dash and busybox have ulimit

# shellcheck source=SCRIPTDIR/../upgrade-settings.sh
. "${0%/*}/upgrade-settings.sh"

# The packages that the board accepts: marker and layout version, as the board's program reads them.
hardware() {
    marker=$(conf_value /usr/upgrade MARKER || echo 3510)
    marker=$(conf_value /etc/oem_marker.conf MARKER || echo "$marker")
    version=1
    [ ! -r /usr/upgrade ] || version=$(conf_number /usr/upgrade VERSION)
    printf '%.4s.%s\n' "$marker" "$version"
}

# The version in flash, which is the name of the kernel image.
running() {
    dd if=/dev/mtdblock/1 bs=32 skip=1 count=1 2>/dev/null | tr -d '\0'
}

# last FIELD: prints a field of the last package's result.
last() {
    safe-upgrade --result | sed -n "s/^$1=//p"
}

# random LIMIT: prints a number up to LIMIT. It differs from board to board.
random() {
    number=$(od -A n -N 4 -t u4 /dev/urandom)
    echo $((number % ($1 + 1)))
}

# plain: makes text from elsewhere safe for the console and the log: printable, and not long.
plain() {
    LC_ALL=C tr -cd '\040-\176' | head -c 200
}

# with_card COMMAND...: runs COMMAND with the card mounted.
with_card() {
    if grep -q " $mount_point " /proc/mounts; then
        "$@"
        return
    fi
    mount "$card" "$mount_point" 2>/dev/null || return
    "$@"
    status=$?
    umount "$mount_point"
    return $status
}

# remembered: prints what the board keeps over a restart. Nothing without a card.
remembered() {
    with_card head -n 1 "$memo" 2>/dev/null | sed 's/ *$//'
}

# remember TEXT: one sector, overwritten in place, so a power cut leaves the old text or the new one.
remember() {
    [ "$1" != "$(remembered)" ] || return 0
    printf '%-511.511s\n' "$1" >/tmp/memo
    with_card dd if=/tmp/memo of="$memo" conv=notrunc,fsync 2>/dev/null ||
        echo "${0##*/}: the card cannot be written; a restart forgets: $1"
}

# start_swupdate OPTION...: takes this shell's place. The server decides how much it sends, so files and
# memory have limits.
#   -b  keeps SWUpdate from looking for UBI: it would format a blank partition
#   -B  no boot loader keeps an environment for SWUpdate
#   -N  refuses an older file, even if it is signed; -R refuses the same version
start_swupdate() {
    version=$(running)
    # Only numbers have an order. Without one, a board takes any version, once.
    minimum=${oldest:-$version}
    case $minimum in
    '' | *[!0-9.]*) ;;
    *) set -- -N "$minimum" "$@" ;;
    esac
    # Its processes wait 100 ms for each other. On a busy board the answer then meets a closed connection,
    # and SWUpdate would end in the middle of an installation (seen).
    trap '' PIPE
    ulimit -f $((largest * 2048)) && ulimit -v "$addresses" || exit
    # shellcheck disable=SC2086 # a command and its options
    exec $limited swupdate -l 4 -B none -b "$(sed -n 's/^mtd\([0-9]*\):.*/\1/p' /proc/mtd | tr '\n' ' ')" \
        -k "$certificate" -H "qve:$(hardware)" -R "$version" "$@"
}
