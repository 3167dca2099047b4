# Sourced by safe-upgrade and resume-upgrade: the store on the card, the record in it, and the check of
# flash against the record.
# shellcheck shell=sh disable=SC2034

. "${0%/*}/upgrade-store.conf"

package=$store/package
settings=$store/settings
record=$store/record
record_copy=$store/record.2
result=$store/result

# upgrade carries these files and these values, FILE:KEY, over into the new /etc.
carried_files="network/network.conf network/wireless.conf system.conf serverinfo.conf cam_model.conf"
carried_values="tcp_server.conf:server_port stream.conf:stream_1_port stream.conf:stream_2_port
    stream.conf:stream_3_port videodecoder.conf:video_type"
if [ -r /bin/webs ]; then
    carried_values="$carried_values web.conf:port"
else
    carried_values="$carried_values lighttpd/lighttpd.conf:server.port"
fi

# say TEXT: prints it on the console and into the kernel's log, since the log daemon may not run yet.
say() {
    echo "${0##*/}: $1"
    # Without this device, only on the console.
    [ ! -w /dev/kmsg ] || echo "<4>${0##*/}: $1" >/dev/kmsg
}

# own_mount DIR: succeeds if DIR is a file system of its own.
own_mount() {
    while read -r _ place _; do
        [ "$place" != "$1" ] || return 0
    done </proc/mounts
    return 1
}

# open_store ro|rw: mounts the card unless it is already mounted.
open_store() {
    mounted_here=
    own_mount "$mount_point" && return 0
    waited=0
    until [ -b "$card" ]; do
        [ "$waited" -lt "$card_wait" ] || return 1
        sleep 1
        waited=$((waited + 1))
    done
    mount -o "$1" "$card" "$mount_point" && mounted_here=yes
}

close_store() {
    [ -z "$mounted_here" ] || umount "$mount_point"
}

# keep FILE...: puts the files safely on the card. An fsync of file and folder is not enough: vfat writes
# the first sector of a new folder with the folder above (seen with Linux 6.1: a cut lost the files).
keep() {
    sync && sync "$@"
}

# forget_cache: makes the next reads come from the card and not from memory.
forget_cache() {
    [ ! -w /proc/sys/vm/drop_caches ] || echo 3 >/proc/sys/vm/drop_caches
}

# sum: prints the checksum of its input. It finds damage, not manipulation, so any checksum would do.
sum() {
    sha256sum | {
        read -r digits _
        echo "$digits"
    }
}

# part FILE OFFSET SIZE: prints these bytes of the file.
part() {
    tail -c +$(($2 + 1)) "$1" | head -c "$3"
}

# this_board: prints the board's identity from the boot loader's environment. A card in the wrong board
# must not install another board's settings.
this_board() {
    get_boot_param "$memory/board" >/dev/null
    sum <"$memory/board"
}

# The record has lines 'NAME FIELD...'. The last one, 'sum SUM', is their checksum. There are two copies.
write_record() { # FILE
    lines="format 1
board $(this_board)
package $package_sum
settings $settings_sum
kernel $kernel_at $kernel_size $kernel_sum $kernel_before
second $second_at $second_size $second_sum $second_before
etc $etc_at $etc_size $etc_sum"
    printf '%s\nsum %s\n' "$lines" "$(echo "$lines" | sum)" >"$1.new" && keep "$1.new" &&
        mv "$1.new" "$1" && keep "$1"
}

has_record() {
    [ -e "$record" ] || [ -e "$record_copy" ]
}

# load_record: sets the variables of the record from the first complete copy.
load_record() {
    for copy in "$record" "$record_copy"; do
        [ -e "$copy" ] || continue
        [ "sum $(sed '$d' "$copy" | sum)" = "$(tail -n 1 "$copy")" ] || continue
        while read -r name a b c d; do
            case $name in
            format) [ "$a" = 1 ] || return 1 ;;
            board) board=$a ;;
            package) package_sum=$a ;;
            settings) settings_sum=$a ;;
            kernel) kernel_at=$a kernel_size=$b kernel_sum=$c kernel_before=$d ;;
            second) second_at=$a second_size=$b second_sum=$c second_before=$d ;;
            etc) etc_at=$a etc_size=$b etc_sum=$c ;;
            esac
        done <"$copy"
        return 0
    done
    return 1
}

# Each start of upgrade removes one file. Unlike a counter, this needs no room and is never half
# written.
lay_out_tries() {
    n=0
    while [ $n -lt "$tries" ]; do
        n=$((n + 1))
        : >"$store/try.$n" || return 1
    done
}

tries_left() {
    set -- "$store"/try.*
    [ -e "$1" ] && echo $# || echo 0
}

# take_try: also fails if the card only pretends to write, since upgrade could then restart forever.
take_try() {
    set -- "$store"/try.*
    [ -e "$1" ] && rm "$1" && keep && forget_cache && [ ! -e "$1" ]
}

# report OUTCOME REASON: stores the result of the package.
report() {
    printf '%s\n' "outcome=$1" "reason=$2" "package=$package_sum" "tries=$((tries - $(tries_left)))" \
        "settings=${settings_in:-etc}" >"$result" && keep "$result"
}

# reported NAME: prints a field of the last report, if there is one.
reported() {
    [ ! -e "$result" ] || sed -n "s/^$1=//p" "$result"
}

# empty_store: removes the records first, so that nothing resumes from an incomplete store.
empty_store() {
    rm -f "$record" "$record_copy" && keep && rm -f "$store"/*.new "$package" "$settings" "$store"/try.* &&
        keep
}

settings_whole() {
    [ "$(sum <"$settings")" = "$settings_sum" ]
}

# find_damage: sets $damage to the first missing part of firmware or settings in flash, or to nothing.
find_damage() {
    kernel_now=$(part "$kernel" 0 "$kernel_size" | sum)
    second_now=$(part "$second" 0 "$second_size" | sum)
    if [ "$kernel_now" != "$kernel_sum" ]; then
        damage="the kernel's partition does not hold the package"
    elif [ "$second_now" != "$second_sum" ]; then
        damage="the second partition does not hold the package"
    elif ! etc_holds_image; then
        damage="the partition of /etc does not hold the package"
    elif lost=$(lost_setting); then
        damage="$lost is not in /etc as it was saved"
    else
        damage=
    fi
}

# flash_untouched: after find_damage, succeeds if kernel and second partition are as before the upgrade.
flash_untouched() {
    [ "$kernel_now" = "$kernel_before" ] && [ "$second_now" = "$second_before" ] &&
        [ "$kernel_now $second_now" != "$kernel_sum $second_sum" ]
}

# etc_holds_image: jffs2 writes only where the image is blank (377), and it marks a node as obsolete by
# a bit of its type (340 becomes 300). With any other difference, the image is incomplete.
etc_holds_image() {
    [ "$(part "$package" "$etc_at" "$etc_size" | sum)" = "$etc_sum" ] &&
        [ "$(head -c "$etc_size" "$etc" | wc -c)" -eq "$etc_size" ] || return 1
    {
        # The image may be shorter than the partition. That is no difference.
        part "$package" "$etc_at" "$etc_size" | cmp -l - "$etc" 2>/dev/null || echo "status $?"
    } | awk '$1 == "status" { if ($2 > 1) bad = 1; next }
        $2 != 377 && !($2 == 340 && $3 == 300) { bad = 1; exit }
        END { exit bad }'
}

# lost_setting: prints the first setting that is not in /etc as it was saved. Fails if there is none.
lost_setting() (
    look=$memory/upgrade-look
    mkdir -p "$look/saved" "$look/etc"
    settings_whole && tar -xf "$settings" -C "$look/saved" || exit 1
    mount -t jffs2 -o ro "$etc_block" "$look/etc" || {
        echo "any setting"
        exit 0
    }
    trap 'umount "$look/etc"; rm -rf "$look"' EXIT
    cd "$look/saved" || exit 0
    for file in $carried_files; do
        # A firmware without the folder cannot hold the file.
        [ ! -e "$file" ] || [ ! -d "$look/etc/${file%"${file##*/}"}" ] ||
            cmp -s "$file" "$look/etc/$file" || {
            echo "$file"
            exit 0
        }
    done
    for place in $carried_values; do
        file=${place%:*}
        [ ! -e "$file" ] || [ ! -e "$look/etc/$file" ] ||
            [ "$(value "$file" "${place#*:}")" = "$(value "$look/etc/$file" "${place#*:}")" ] || {
            echo "${place#*:} of $file"
            exit 0
        }
    done
    [ -e "$look/etc/temp.conf" ] && echo "a file that was being written"
)

# value FILE KEY: prints the number that upgrade finds there. It is in the first line whose key begins
# with KEY, else in the last line.
value() {
    awk -v key="$2" '
        { sub(/^[ \t]+/, "") }
        /^$/ || /^[#[]/ { next }
        {
            text = index($0, "=") ? substr($0, index($0, "=") + 1) : ""
            sub(/^[ \t]*"?/, "", text)
            if (index($0, key) == 1) exit
        }
        END { print match(text, /^[-+]?[0-9]+/) ? substr(text, 1, RLENGTH) + 0 : 0 }' "$1"
}

# run_upgrade PACKAGE: returns only if upgrade could not run. upgrade kills every process that uses the
# file system of /etc. If that is the root file system, it kills everything.
run_upgrade() {
    own_mount /etc && cd / && upgrade "$1" -v
}
