#!/bin/bash
# fwpack_test.sh FWPACK: makes packages by hand from real images. fwpack must make the same bytes, find
# every damage and leave nothing half-written.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # for mkfs.jffs2; other users than root need this
fwpack=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() { printf 'FAILED: %s\n' "$@" >&2 && exit 1; }

# expect STATUS PATTERN COMMAND...: PATTERN must match the whole first line, and all messages must begin
# with the tool's name. Keeps the output in the file 'said'.
expect() {
    local wanted=$1 pattern=$2 status=0
    shift 2
    "$@" >said 2>errors </dev/null || status=$?
    ! grep -v '^fwpack: ' errors || fail "a message without the tool's name: $*"
    cat errors >>said
    [ "$status" -eq "$wanted" ] || fail "status $status, not $wanted: $*" "$(cat said)"
    grep -qxe "$pattern" <<<"$(head -n 1 said)" || fail "first line not '$pattern': $*" "$(cat said)"
}

# table PREFIX...: runs each row 'STATUS|ARGUMENTS|PATTERN' on standard input.
table() {
    local status arguments pattern words
    while IFS='|' read -r status arguments pattern; do
        read -ra words <<<"$arguments"
        expect "$status" "$pattern" "$@" "${words[@]}"
    done
}

image() { # NAME MKIMAGE-OPTION...: a kernel image; later options win
    SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 \
        -e 0x80008040 -n $'bell\a"\\\xff' "${@:2}" -d data "$1" >/dev/null
}

package() { # LAYOUT KERNEL SECOND ETC [SIZE2 SIZE3]: a package for marker AB on standard output
    local words=("$1" 0 "$(stat -c %s "$2")" "${5:-$(stat -c %s "$3")}" "${6:-$(stat -c %s "$4")}")
    if [ "$1" -eq 1 ]; then unset 'words[1]'; else words+=(0 0 0 0 0 0 0 0 0 0); fi
    perl -e 'print pack("a4l<*", "AB", @ARGV)' "${words[@]}"
    cat "$2" "$3" "$4"
}

damage() { # NAME OFFSET BYTES: a copy of good1
    cp good1 "$1"
    printf '%b' "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# create LAYOUT KERNEL ETC OUT OPTION...
create() { "$fwpack" create -l "$1" --marker AB --kernel "$2" -s second -e "$3" --output "$4" "${@:5}"; }

seq 20000 >data && truncate -s 70001 data
seq -f 'second %.0f' 9999 >second && truncate -s 30003 second
mkdir tree && seq 50000 >tree/numbers
mkfs.jffs2 -r tree -e 0x10000 -l --pad=0x80000 -o etc
mkfs.jffs2 -r tree -e 0x10000 -l -n --pad=0x80000 -o etc-n
image kernel && image gzip -C gzip
image x86 -A x86 && image ramdisk -T ramdisk && image bzip2 -C bzip2
printf 'mtd%s 00010000 "name"\n' '0: 00080000' '1: 00011200' '2: 00800000' '3: 00080000' >mtd
sed /mtd1/d mtd >mtd-cut && sed '/mtd3/s/00080000/0007ffff/' mtd >mtd-small

# Both layouts: the bytes are the same as by hand, a board accepts them, extract gives the inputs back.
for layout in 1 3; do
    (umask 027 && create $layout kernel etc good$layout --partitions 0x11200,30003,512K)
    package $layout kernel second etc | cmp - good$layout || fail "layout $layout differs"
    expect 0 "out/kernel: 70065 bytes" "$fwpack" extract --output-dir out good$layout
    cmp out/kernel kernel && cmp out/second second && cmp out/etc etc
done
expect 0 'fwpack: the sizes were not compared .*' create 1 gzip etc gzipped
expect 0 "one/second: 30003 bytes" "$fwpack" extract good1 --output-dir one --region 2
[ "$(ls one && stat -c %a good1)" = $'second\n640' ] || fail "$(ls -l one good1)"
expect 0 'layout      3, header of 64 bytes' "$fwpack" info good3
sed -e 's/^ *//' -e 's/  */ /g' -e '/^data size/,/^compression/d' said | diff - <(
    printf '%s\n' 'layout 3, header of 64 bytes' 'marker "AB" (00004241)' \
        'file size 624420 bytes, header and regions' \
        'verdict a board with this marker and layout would accept it' '' \
        'region offset size contents' '1 64 70065 kernel image' '2 70129 30003 not examined' \
        '3 100132 524288 JFFS2 at every 64 KiB' '' 'kernel image' 'name bell."\.' \
        'created 2023-11-14 22:13:20 UTC' \
        "header CRC$(od -An -tx4 --endian=big -j4 -N4 kernel), holds" \
        "data CRC$(od -An -tx4 --endian=big -j24 -N4 kernel), holds") || fail "info differs"

# The same as JSON. Arbitrary bytes in marker and name still give valid JSON.
damage odd 0 '\0"\0377\t' && "$fwpack" info --json odd >json
jq -e --arg hashes "$(sha256sum kernel second etc | cut -c-64 | paste -sd' ')" '
    .layout == 1 and .marker == "" and .marker_word == "09ff2200" and .verdict == "accepted" and
    .kernel.name == "bell\u0007\"\\\u00ff" and .kernel.created == "2023-11-14T22:13:20Z" and
    ([.regions[].sha256] | join(" ")) == $hashes and [.regions[].offset] == [20, 70085, 100088] and
    [.regions[].verdict] == ["ok", "not examined", "ok"]' json >judged || fail "$(cat json)"

# The answers of a board with marker AB.
head -c 19 good1 >short && head -c -1 good1 >shorter && cat good1 - <<<"" >longer && mkfifo pipe
damage marker 0 X && damage layout2 4 '\002' && damage wrap 11 '\0377'
damage magic 20 X && damage header 60 X && damage kdata 9999 '\0377'
damage block $((20 + 70065 + 30003 + 0x10000)) '\0377\0377'
for bad in x86 ramdisk bzip2; do package 1 $bad second etc >p-$bad; done
: >nothing && package 3 kernel nothing nothing 524288 -524288 >negative
package 1 kernel second etc 2147379270 >sparse && truncate -s 2G sparse
table "$fwpack" check -m AB <<'END'
2|nowhere|fwpack: nowhere: No such file or directory
2|good1 .|good1: a board would accept it
2|pipe|fwpack: pipe: not a plain file
1|short|short: a board would refuse it: unreadable: it ends within its header
1|marker|marker: .*: wrong marker: found "XB" (00004258), the board's is "AB" (00004241)
1|good3|good3: .*: wrong layout version: found 3, the board expects 1
1|--layout 2 layout2|layout2: .*: unknown layout: found 2, there are 1 and 3
0|--version 3 good3|good3: a board would accept it
1|shorter|shorter: .*: wrong file size: found 624375 bytes, header and regions are 624376
1|longer|longer: .*: wrong file size: found 624377 bytes, .*
1|wrap|wrap: .*: wrong file size: found 624376 bytes, header and regions are -16152840
1|sparse|sparse: .*: wrong file size: found 2147483648 bytes, header and regions are 2147973643
1|magic|magic: .*: bad kernel image: magic 58051956, expected 27051956
1|header|header: .*: bad kernel image: header CRC .*, its bytes give .*
1|kdata|kdata: .*: bad kernel image: data CRC .*, the 70001 bytes behind the header give .*
1|p-x86|p-x86: .*: bad kernel image: architecture x86, expected ARM
1|p-ramdisk|p-ramdisk: .*: bad kernel image: type RAM disk, .*
1|p-bzip2|p-bzip2: .*: bad kernel image: compression bzip2, .*
1|block|block: .*: bad /etc file system: the 64 KiB block at 65536 of region 3 begins with ff ff, not 85 19
1|good1 marker --quiet|
0|good1 --mtd mtd|good1: a board would accept it
1|good1 -p 70064,1M,0x80000|good1: region 1 is too large for its partition: 70065 bytes, mtd1 has 70064
1|good1 --mtd mtd-small|good1: region 3 is too large for its partition: 524288 bytes, mtd3 has 524287
2|good1 --mtd mtd-cut|fwpack: mtd-cut: not a saved /proc/mtd: it has no size of mtd1
END
expect 0 'marker: a board would accept it' "$fwpack" check marker # compared only when asked
expect 0 'good1: .*' "$fwpack" check --verbose good1 && grep -qx 'fwpack: log: CHECK VERSION : 1 vs 1' said
expect 0 'negative: a board would accept it' "$fwpack" check -l 3 negative && grep -q 'size -524288' said

# fwpack shows incomplete regions, but does not extract them.
expect 0 'layout .*' "$fwpack" info shorter && grep -q 'KiB; cut short, 524287 bytes' said
table "$fwpack" <<'END'
1|info kernel|fwpack: kernel: not a firmware package (it looks like a bare kernel image)
1|info layout2|fwpack: layout2: not a firmware package: unknown layout: found 2, there are 1 and 3
1|extract shorter --output-dir none|fwpack: shorter: region 3: cut short, 524287 bytes are there
1|extract negative -d none|fwpack: negative: region 2: outside the file
2|create -m ABCDE|fwpack: ABCDE: a marker has at most four characters
2|create -m A=B|fwpack: the marker has a '=' .*
2|create -l 1 -k kernel -e etc|fwpack: create needs --marker, --second, --output
2|check -p 1M,2M good1|fwpack: 1M,2M: the partitions are three sizes, .*
2|check -V 1x good1|fwpack: 1x: the layout version is a number
2|check|fwpack: check takes packages
2|info -x|fwpack: invalid option .*
2|help nothing|fwpack: 'nothing' is no command
END
expect 2 'fwpack: the marker is empty' "$fwpack" check -m '' good1

# A failure leaves an existing output unchanged, and no other file.
mkdir -p former/etc && echo former >former/package && truncate -s 2G huge && head -c 70060 kernel >part
refuses() { # PATTERN COMMAND...
    expect 1 "fwpack: $1" "${@:2}"
    [ "$(ls former && cat former/package)" = $'etc\npackage\nformer' ] || fail "touched: $*"
}
for bad in x86 part data; do refuses 'not made.*: bad kernel.*' create 3 $bad etc former/package; done
refuses 'not made.*: bad /etc file system.*' create 1 kernel etc-n former/package
refuses 'nowhere: No such file.*' create 1 kernel nowhere former/package
refuses 'former: not a plain file' create 1 former etc former/package
refuses 'nothing: empty' create 1 kernel nothing former/package
refuses 'huge: too large: .*' create 1 kernel huge former/package
refuses 'etc: too large for its partition.*' create 1 kernel etc former/package -p 1M,1M,511K
refuses 'pipe: exists and is not a plain file' create 1 kernel etc pipe
refuses 'former/etc: exists and is not a plain file' "$fwpack" extract good1 -d former
(ulimit -f 200 && refuses '.*package: File too large' create 1 kernel etc former/package &&
    refuses 'never/etc: File too large' "$fwpack" extract good1 -d never)
[ -z "$(compgen -G 'n[eo][vn]e*')" ] || fail "a folder without its files"
expect 0 'fwpack: warning: etc-n .*' create 3 kernel etc-n warned
# shellcheck disable=SC2016 # for the inner shell
expect 0 '.*would accept it' bash -c '"$0" check good1 <&-' "$fwpack" # a closed standard input

# An interrupted fwpack removes its unfinished files.
truncate -s 1500M second
"$fwpack" create -l 1 -m AB -k kernel -s second -e etc -o former/package &
until compgen -G 'former/package.*' >/dev/null; do kill -0 $!; done
kill $!
! wait $! || fail "the signal came too late"
refuses 'nowhere: No such.*' create 1 nowhere etc former/package
