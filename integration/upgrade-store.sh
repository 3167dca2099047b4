# Sourced after upgrade-card.sh: the store on the card, and the comparison of flash with it.
# shellcheck shell=sh disable=SC2034,SC2154

. "${0%/*}/upgrade-settings.sh"
export LC_ALL=C

# The store is one file. After it is made, no step changes its size, its name or its place on the card,
# so a power cut finds the card's own tables at rest. Its parts begin at these blocks of 64 KiB:
door=0        # one line: must start-up look further?
headers="1 2" # one sector each; the newer complete one counts
copies="4 8"  # of the settings
package_at=16

archive=$memory/upgrade-settings # the settings, as a tar file
look=$memory/upgrade-look
in_memory=$memory/upgrade-package
spare=500000 # bytes of memory for two copies of the settings
# The size of an erase block in bytes, from a line like 'mtd3: 00180000 00010000 "etc"'.
erase_block=$((0x0$(sed -n "s/^mtd${etc##*[!0-9]}: [^ ]* \([^ ]*\) .*/\1/p" /proc/mtd)))

# sum [TOOL]: prints a checksum of its input that finds damage, and takes little time. Fails if there is none.
sum() {
    "${1:-cksum}" | { read -r word _ && echo "$word"; }
}

# sha: prints the SHA-256 of its input, which names a package or a board.
sha() {
    sum sha256sum
}

# part FILE OFFSET SIZE: prints these bytes of the file. dd is several times faster than tail and head.
part() {
    { dd bs=1 skip="$2" count=0 && dd bs=64k count=$(($3 / 65536)) && head -c $(($3 % 65536)); } <"$1" 2>/dev/null
}

# stored: prints the package in the store.
stored() {
    # shellcheck disable=SC2086 # one word each
    set -- $regions
    part "$store" $((package_at * 65536)) $(($1 + $2 + $3 + $4))
}

# put BLOCK: writes its input into the store, safely, and makes the next reads come from the card and not from
# memory.
put() {
    dd of="$store" bs=65536 seek="$1" conv=notrunc,fsync 2>/dev/null &&
        { [ ! -w /proc/sys/vm/drop_caches ] || echo 3 >/proc/sys/vm/drop_caches; }
}

# sector BLOCK: prints the text in the block's first sector.
sector() {
    dd if="$store" bs=512 skip=$(($1 * 128)) count=1 2>/dev/null | tr -d '\0'
}

# this_board: prints the board's identity, from the boot loader's environment. A card in the wrong board
# must not install another board's settings. It comes first, so it also fails if no checksum can be made.
this_board() {
    rm -f "$memory/board"
    get_boot_param "$memory/board" >/dev/null && [ -s "$memory/board" ] && sum <"$memory/board" >/dev/null &&
        sha <"$memory/board"
}

# The state, one line each; the new firmware's scripts read what the old one's wrote. package: its SHA-256. tries:
# starts of upgrade. settings: where they are, 'etc' or only in the 'store'. ended: what the last start said,
# 'complete' or 'fail ...'; nothing after a power cut; 'compared' when flash was right once, 'unread' if the settings
# could not be compared then. regions: start of the first one in the package, and the three sizes.
fields="outcome reason package tries settings board ended regions"
newline='
'

# new_state BOARD: the state of a card without an upgrade. If resume-upgrade mounted the settings, flash has none.
new_state() {
    outcome=none reason='' package='' tries=0 settings=store board=$1 ended='' regions=''
    own_mount /etc upgrade-store || settings=etc
}

# write_header: writes the state in place of the older header, then of the other one, so that damage to one
# of them brings no earlier state back. Each is one sector, and is read back.
write_header() {
    reason=$(printf '%.100s' "$reason")
    for _ in 1 2; do
        state="seq=$((seq + 1))"
        for name in $fields; do
            eval "state=\"\$state$newline$name=\$$name\""
        done
        printf '%-511s\n' "$state${newline}sum=$(printf %s "$state" | sum)$newline" | put "$((3 - slot))" &&
            load_header && [ "$header" = "$state" ] || return 1
    done
}

# load_header: sets the state from the newer complete header.
load_header() {
    seq=0 slot=2 header=
    for block in $headers; do
        text=$(sector "$block")
        digits=${text##*sum=}
        text=${text%"$newline"sum=*}
        { now=$(printf %s "$text" | sum) && [ "${digits%%[!0-9]*}" = "$now" ]; } || continue
        line=${text%%"$newline"*}
        [ "${line#seq=}" -gt "$seq" ] && seq=${line#seq=} slot=$block header=$text
    done
    [ "$seq" -gt 0 ] || return 1
    while IFS= read -r line; do
        name=${line%%=*}
        case " $fields " in *" $name "*) eval "$name=\${line#*=}" ;; esac
    done <<END
$header
END
}

# pack_settings DIR: makes the archive. Fails if a file changes meanwhile.
pack_settings() (
    cd "$1" || exit
    set --
    for file in $carried_files $carried_values; do
        file=${file%:*}
        case " $* " in *" $file "*) continue ;; esac
        [ ! -e "$file" ] || set -- "$@" "$file"
    done
    [ $# -gt 0 ] || exec head -c 1024 /dev/zero >"$archive" # an empty archive
    tar -cf "$archive" "$@"
)

# save_settings DIR: saves the settings of DIR in both copies, until they no longer change.
saved='' # their checksum
save_settings() {
    for _ in 1 2 3 4; do
        pack_settings "$1" && size=$(wc -c <"$archive") && [ "$size" -lt 200000 ] && now=$(sum <"$archive") || return
        [ "$now" != "$saved" ] || return 0
        saved=$now
        for copy in $copies; do
            { printf '%-511s\n' "settings $size $saved $board" && cat "$archive"; } | put "$copy" &&
                read_copy "$copy" && [ "$digits" = "$saved" ] || return
        done
    done
    return 1
}

# read_copy BLOCK: makes the archive from this copy. Fails if it is damaged or another board's.
read_copy() {
    read -r word size digits owner <<END
$(sector "$1")
END
    case $size in '' | *[!0-9]*) return 1 ;; esac
    [ "$word $owner" = "settings $board" ] && part "$store" $(($1 * 65536 + 512)) "$size" >"$archive" &&
        [ "$(sum <"$archive")" = "$digits" ]
}

read_settings() {
    for copy in $copies; do
        ! read_copy "$copy" || return 0
    done
    return 1
}

# unpack DIR: unpacks the settings. tar would complain about their time, since the clock is not set yet.
unpack() {
    tar -xf "$archive" -C "$1" 2>/dev/null
}

# settle: cleans up after the last state of an upgrade.
settle() {
    head -c $(((package_at - ${copies%% *}) * 65536)) /dev/zero | put "${copies%% *}" && echo "$idle" | put $door
}

# find_damage: sets $damage to the first thing in flash that is not as the package in memory and the saved settings, or
# to nothing. Fails if it cannot compare. The second time it leaves out /etc, where services may have run since.
find_damage() {
    damage=
    # shellcheck disable=SC2086 # one word each
    set -- $regions
    compare "$kernel" "$1" "$2" && compare "$second" $(($1 + $2)) "$3" || return
    [ "$ended" != compared ] || return 0
    compare "$etc" $(($1 + $2 + $3)) "$4" || return
    [ -z "$damage" ] && read_settings || return 0
    lost=$(lost_settings whole) || return
    damage=${lost:+"${lost%%"$newline"*} is not in /etc as it was saved"}
}

# compare DEVICE OFFSET SIZE: compares with this part of the package, unless there is damage already. In /etc, jffs2
# writes only where the image is blank (377), and it marks a node as obsolete by a bit of its type (340 becomes
# 300). With any other difference, the image is incomplete.
compare() {
    [ -z "$damage" ] || return 0
    first=$({ { part "$in_memory" "$2" "$3" || echo "status 2" >&3; } | cmp -l - "$1" 2>/dev/null ||
        echo "status $?"; } 3>&1 |
        awk -v is_etc="$([ "$1" != "$etc" ] || echo yes)" '$1 == "status" { if ($2 > 1) print "error"; next }
            !is_etc || $2 != 377 && !($2 == 340 && $3 == 300) { print $1; exit }') || return
    case $first in
    error) return 1 ;;
    ?*) damage="block $(((first - 1) / erase_block)) of $1 does not hold the package" ;;
    esac
}

# lost_settings [whole]: prints the settings that are not in /etc as they were saved. Fails if it cannot compare. A
# whole firmware that has not the folder of a file, or the file of a value, cannot hold it.
lost_settings() (
    trap 'umount "$look/etc" 2>/dev/null; rm -rf "$look/saved"' EXIT # the mount can have failed
    mkdir -p "$look/saved" && unpack "$look/saved" && cd "$look/saved" || exit
    mount_flash "$look/etc" || { echo "any setting" && exit; }
    for file in $carried_files; do
        { [ -e "$file" ] && [ -d "$look/etc/${1:+${file%"${file##*/}"}}" ]; } || continue
        cmp -s "$file" "$look/etc/$file" || echo "$file"
    done
    for place in $carried_values; do
        file=${place%:*} key=${place#*:}
        { [ -e "$file" ] && [ -e "$look/etc/${1:+$file}" ]; } || continue
        [ "$(conf_number "$file" "$key")" = "$(conf_number "$look/etc/$file" "$key")" ] || echo "$key of $file"
    done
    [ ! -e "$look/etc/temp.conf" ] || echo "a file that was being written"
)

# mount_flash DIR: mounts the /etc that is in flash.
mount_flash() {
    mkdir -p "$1" && mount -t jffs2 -o ro "$etc_block" "$1"
}

# load_package: copies the package from the store into memory, where upgrade reads it. Returns 1 if there is no
# room for it and the settings, and 2 if the package is damaged or cannot be read.
load_package() {
    stored >"$in_memory"
    room "$memory" "$spare" 2>/dev/null || { rm -f "$in_memory" && return 1; }
    [ "$(sha <"$in_memory")" = "$package" ] || return 2
}

# room DIR BYTES: succeeds if DIR has room for them.
room() {
    { head -c "$2" /dev/zero >"$1/upgrade-room" && rm "$1/upgrade-room"; } || ! rm -f "$1/upgrade-room"
}

# room_for_copies: upgrade copies the settings files to /tmp, and would lose them without a word.
room_for_copies() {
    room /tmp $(($(wc -c <"$archive") + 65536)) 2>/dev/null
}

# take_try: counts a start before it happens. It reads the count back from the card, since with one that
# only pretends to write, upgrade could restart forever.
take_try() {
    tries=$((tries + 1)) ended=
    write_header
}

# run_upgrade PACKAGE: returns only if upgrade could not run. upgrade kills processes that use the file system of
# /etc, and all processes use the root file system. Its verdict goes into the header; without one, the power
# failed.
run_upgrade() {
    own_mount /etc && cd / || return
    trap '' HUP INT TERM PIPE
    upgrade "$1" -v 2>&1 | {
        error=
        while IFS= read -r line; do
            printf '%s\n' "$line"
            case $line in
            "[ERROR] "*) error=$(printf ' %.60s' "${line#* }") ;;
            "Upgrade complete."*) ended=complete && write_header ;;
            "Upgrade fail."*) ended=fail$error && write_header ;;
            esac
        done
    }
}
