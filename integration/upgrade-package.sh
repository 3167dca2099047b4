# Sourced by safe-upgrade: what can be known of the package $given before the first erase. upgrade itself checks
# the kernel's checksums, and that each block of the image of /etc begins like one.
# shellcheck shell=sh disable=SC2034,SC2154

# read_layout FILE: reads where the regions are. Fails if their sizes do not add up to the file's size.
read_layout() {
    package_size=$(wc -c <"$1")
    # shellcheck disable=SC2046 # one word each: marker, layout and the sizes
    set -- $(od -A n -v -t u4 -N 24 "$1")
    case ${2:-} in
    1) layout="20 ${3:-0} ${4:-0} ${5:-0}" ;;
    3) layout="64 ${4:-0} ${5:-0} ${6:-0}" ;;
    *) return 1 ;;
    esac
    # shellcheck disable=SC2086 # one word each
    set -- $layout
    kernel_size=$2 second_size=$3 etc_size=$4 etc_at=$(($1 + $2 + $3))
    [ "$package_size" -eq $((etc_at + etc_size)) ]
}

# fits DEVICE SIZE: checks the size early. upgrade itself would fail only after the erase.
fits() {
    [ "$2" -eq 0 ] || [ "$(part "$1" $(($2 - 1)) 1 | wc -c)" -eq 1 ] || refuse "$1 has no room for $2 bytes"
}

check_sizes() {
    fits "$kernel" "$kernel_size"
    fits "$second" "$second_size"
    fits "$etc" "$etc_size"
    [ $((package_at * 65536 + package_size)) -le $((store_size * 1048576)) ] ||
        refuse "the store has no room for the package; make store_size larger"
}

# check_free_blocks: jffs2 writes only while some blocks are free: 2 for deletions, and for overhead 2 % of the
# partition and 100 bytes for each block. A free block is blank, or has only the 12 bytes of jffs2's mark of an
# erased block.
check_free_blocks() {
    size=$(wc -c <"$etc") at=0
    free=$((size / erase_block))
    needed=$((2 + (size / 50 + 100 * free + erase_block - 1) / erase_block))
    while [ "$at" -lt "$etc_size" ]; do
        [ "$(part "$given" $((etc_at + at)) "$erase_block" | tr -d '\377' | wc -c)" -le 12 ] || free=$((free - 1))
        at=$((at + erase_block))
    done
    [ "$free" -ge "$needed" ] || refuse "the image of /etc leaves $free blocks free, and jffs2 needs $needed"
}

# check_settings: refuses a firmware in which upgrade would write a value that reads differently, for
# example because another key begins with the same letters. It would be lost each time.
check_settings() {
    command -v jffs2reader >/dev/null || return 0
    image=$memory/upgrade-image file=$memory/upgrade-file mine='' new=''
    part "$given" "$etc_at" "$etc_size" >"$image" || { rm -f "$image" && refuse "there is no room in $memory"; }
    for place in $carried_values; do
        name=${place%:*} key=${place#*:}
        { [ -r "/etc/$name" ] && jffs2reader "$image" -f "/$name" >"$file" 2>/dev/null && [ -s "$file" ]; } || continue
        mine=$(conf_number "/etc/$name" "$key")
        as_rewritten "$file" "$key" "$mine" >"$file.new"
        new=$(conf_number "$file.new" "$key")
        [ "$new" = "$mine" ] || break
    done
    rm -f "$image" "$file" "$file.new"
    [ "$new" = "$mine" ] || refuse "the new firmware would read $key of $name as $new, not as $mine"
}

# as_rewritten FILE KEY NUMBER: prints a settings file as upgrade leaves it. upgrade replaces the lines that
# begin with just this key and a blank or an equals sign, else it adds one, also to an unfinished last line.
as_rewritten() {
    LC_ALL=C awk -v key="$2" -v line="$2=$3" -v finished="$(tail -c 1 "$1" | wc -l)" '
        index($0, key) == 1 && substr($0, length(key) + 1, 1) ~ /[ =]/ { $0 = line; found = 1 }
        { printf "%s%s", (NR > 1 ? "\n" : ""), $0 }
        END { print (found ? "" : (finished + 0 ? "\n" : "") line) }' "$1"
}
