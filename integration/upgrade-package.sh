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
    kernel_at=$1 second_at=$(($1 + $2)) etc_at=$(($1 + $2 + $3))
    kernel_size=$2 second_size=$3 etc_size=$4
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

# free_blocks_left BLOCKS: prints how many of the erase blocks of /etc the image leaves free. A free one has
# nothing, or only jffs2's mark of an erased block.
free_blocks_left() {
    part "$given" "$etc_at" "$etc_size" | od -A d -t x4 | awk -v size="$erase_block" -v blocks="$1" '
        $1 == "*" { next }
        in_use { for (b = int(last / size); b * size < $1 + 0; ++b) used[b] }
        {
            last = $1 + 0
            mark = last % size == 0 && $2 == "20031985" && $3 == "0000000c" && $5 == "ffffffff"
            in_use = NF > 1 && !mark && $2 $3 $4 $5 !~ /^f+$/
        }
        END {
            for (b in used) --blocks
            print blocks
        }'
}

check_free_blocks() {
    bytes=$(wc -c <"$etc")
    [ $((bytes % erase_block)) -eq 0 ] || {
        say "the size of $etc is no multiple of erase_block, so its free blocks are not counted"
        return
    }
    free=$(free_blocks_left $((bytes / erase_block)))
    [ "$free" -ge "$free_blocks" ] ||
        refuse "the image of /etc leaves $free blocks free, and jffs2 needs $free_blocks"
}

# check_settings: refuses a firmware in which upgrade would write a value that reads differently, for
# example because another key begins with the same letters. It would be lost each time.
check_settings() {
    command -v jffs2reader >/dev/null || return 0
    part "$given" "$etc_at" "$etc_size" >"$memory/upgrade-image" || refuse "there is no room in $memory"
    for place in $carried_values; do
        file=${place%:*} key=${place#*:}
        [ -r "/etc/$file" ] || continue
        jffs2reader "$memory/upgrade-image" -f "/$file" >"$memory/upgrade-file" 2>/dev/null
        [ -s "$memory/upgrade-file" ] || continue # the new firmware has no such file
        mine=$(conf_number "/etc/$file" "$key")
        as_rewritten "$memory/upgrade-file" "$key" "$mine" >"$memory/upgrade-rewritten"
        new=$(conf_number "$memory/upgrade-rewritten" "$key")
        [ "$new" = "$mine" ] || {
            rm -f "$memory"/upgrade-[ifr]*
            refuse "the new firmware would read $key of $file as $new, not as $mine"
        }
    done
    rm -f "$memory"/upgrade-[ifr]*
}

# as_rewritten FILE KEY NUMBER: prints a settings file as upgrade leaves it. upgrade replaces the lines that
# begin with just this key and a blank or an equals sign, else it adds one, also to an unfinished last line.
as_rewritten() {
    LC_ALL=C awk -v key="$2" -v line="$2=$3" -v finished="$(tail -c 1 "$1" | wc -l)" '
        index($0, key) == 1 && substr($0, length(key) + 1, 1) ~ /[ =]/ { $0 = line; found = 1 }
        { printf "%s%s", (NR > 1 ? "\n" : ""), $0 }
        END { print (found ? "" : (finished + 0 ? "\n" : "") line) }' "$1"
}
