#!/bin/bash
# fwpack_test.sh FWPACK: packages are made by hand too, out of real images; fwpack must make the
# same bytes, find every damage and leave nothing half-written.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # where mkfs.jffs2 is, also for those who are not root
fwpack=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    printf 'FAILED: %s\n' "$@" >&2
    exit 1
}

# expect STATUS PATTERN COMMAND...: with this exit status it prints a line with PATTERN.
expect() {
    local wanted=$1 pattern=$2 status=0
    shift 2
    "$@" >said 2>&1 </dev/null || status=$?
    [ "$status" -eq "$wanted" ] || fail "status $status, not $wanted: $*" "$(cat said)"
    [ -z "$pattern" ] || grep -qe "$pattern" said || fail "not '$pattern': $*" "$(cat said)"
}

image() { # NAME MKIMAGE-OPTION...: a kernel image; later options win
    SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 \
        -e 0x80008040 -n $'bell\a' "${@:2}" -d data "$1" >/dev/null
}

by_hand() { # LAYOUT KERNEL ETC: a package for marker AB on standard output
    local words=("$1" 0 "$(stat -c %s "$2")" "$(stat -c %s second)" "$(stat -c %s "$3")")
    if [ "$1" -eq 1 ]; then unset 'words[1]'; else words+=(0 0 0 0 0 0 0 0 0 0); fi
    perl -e 'print pack("a4V*", "AB", @ARGV)' "${words[@]}"
    cat "$2" second "$3"
}

damage() { # NAME OFFSET BYTES: a copy of good1
    cp good1 "$1"
    printf '%b' "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

create() { # LAYOUT KERNEL ETC OUT
    "$fwpack" create -l "$1" --marker AB --kernel "$2" -s second -e "$3" --output "$4"
}

seq 20000 >data && truncate -s 70001 data
seq -f 'second %.0f' 9999 >second && truncate -s 30003 second
mkdir tree && seq 50000 >tree/numbers
mkfs.jffs2 -r tree -e 0x10000 -l --pad=0x80000 -o etc
mkfs.jffs2 -r tree -e 0x10000 -l -n --pad=0x80000 -o etc-n
image kernel && image gzip -C gzip
image x86 -A x86 && image ramdisk -T ramdisk && image bzip2 -C bzip2

# Both layouts: the same bytes as by hand, accepted, and shown as they are.
for layout in 1 3; do
    (umask 027 && create $layout kernel etc good$layout)
    by_hand $layout kernel etc | cmp - good$layout || fail "layout $layout differs"
    expect 0 'would accept' "$fwpack" check --marker AB --version $layout good$layout
done
[ "$(stat -c %a good1)" = 640 ] || fail "mode of the output"
expect 0 '' create 1 gzip etc gzipped
diff - <("$fwpack" info good3) <<END || fail "info differs"
layout      3, header of 64 bytes
marker      "AB" (00004241)
file size   624420 bytes, header and regions
verdict     a board with this marker and layout would accept it

region      offset        size  contents
     1          64       70065  kernel image
     2       70129       30003  not examined
     3      100132      524288  JFFS2 at every 64 KiB

kernel image
  name            bell.
  created         2023-11-14 22:13:20 UTC
  data size       70001 bytes
  load, entry     0x80008000, 0x80008040
  architecture    ARM
  type            kernel
  compression     not compressed
  header CRC     $(od -An -tx4 --endian=big -j4 -N4 kernel), holds
  data CRC       $(od -An -tx4 --endian=big -j24 -N4 kernel), holds
END
expect 0 'log: CHECK VERSION : 3 vs 3' "$fwpack" check --version 3 --verbose good3

# What a board with marker AB refuses, and why.
head -c 7 good1 >start && head -c 19 good1 >short && head -c -1 good1 >shorter
cat good1 - <<<"" >longer
damage marker 0 X && damage layout2 4 '\002' && damage negative 11 '\0377'
damage magic 20 X && damage header 60 X && damage kdata 9999 '\0377'
damage block $((20 + 70065 + 30003 + 0x10000)) '\0377\0377'
for kernel in x86 ramdisk bzip2; do by_hand 1 $kernel etc >p-$kernel; done
while IFS='|' read -r version name words; do
    expect 1 "would refuse it: $words" "$fwpack" check -m AB -V "$version" "$name"
done <<'END'
1|nowhere|unreadable: No such file
1|.|unreadable: Is a directory
1|start|unreadable: it ends within its header
1|short|unreadable: it ends within its header
1|marker|wrong marker: found "XB" (00004258), the board's is "AB" (00004241)
1|good3|wrong layout version: found 3, the board expects 1
2|layout2|unknown layout: found 2, there are 1 and 3
1|shorter|wrong file size: found 624375 bytes, header and regions are 624376
1|longer|wrong file size: found 624377 bytes, header and regions are 624376
1|negative|wrong file size: found 624376 bytes, header and regions are -16152840
1|magic|bad kernel image: magic 58051956, expected 27051956
1|header|bad kernel image: header CRC .*, its bytes give
1|kdata|bad kernel image: data CRC .*, the 70001 bytes behind the header give
1|p-x86|bad kernel image: architecture x86, expected ARM
1|p-ramdisk|bad kernel image: type RAM disk, expected kernel,
1|p-bzip2|bad kernel image: compression bzip2, expected none or gzip
1|block|bad /etc file system: the 64 KiB block at 65536 of region 3 begins with ff ff, not 85 19
END
expect 0 'would accept' "$fwpack" check marker # markers are compared only when asked
expect 0 'data CRC .*, does not hold' "$fwpack" info kdata
expect 0 'negative size' "$fwpack" info negative
expect 0 'cut short, 524287 bytes' "$fwpack" info shorter
expect 1 'unknown layout' "$fwpack" info layout2

# What create refuses; the former output stays and nothing is left beside it.
mkdir out && echo former >out/package && true >empty && truncate -s 2G huge
head -c 70060 kernel >cropped && mkfifo pipe
refuses() { # PATTERN COMMAND...
    expect 1 "$@"
    [ "$(ls out && cat out/package)" = $'package\nformer' ] || fail "output touched: $*"
}
for bad in x86 cropped data; do refuses 'not made.*: bad kernel' create 3 $bad etc out/package; done
refuses 'not made.*: bad /etc file system' create 1 kernel etc-n out/package
refuses 'nowhere: No such file' create 1 kernel nowhere out/package
refuses 'out: not a plain file' create 1 out etc out/package
refuses 'empty: empty' create 1 kernel empty out/package
refuses 'huge: too large' create 1 kernel huge out/package
refuses 'pipe: exists and is not' create 1 kernel etc pipe
# A write that fails, as on a full disk.
(ulimit -f 200 && refuses 'package: File too large' create 1 kernel etc out/package)
expect 0 'warning: etc-n' create 3 kernel etc-n warned
# shellcheck disable=SC2016 # for the inner shell
expect 0 'would accept' bash -c '"$0" check good1 <&-' "$fwpack" # a closed standard input

# An interrupted one removes what it began.
truncate -s 1500M second
"$fwpack" create -l 1 -m AB -k kernel -s second -e etc -o out/package &
until compgen -G 'out/package.*' >/dev/null; do kill -0 $!; done
kill $!
! wait $! || fail "the signal came too late"
refuses 'nowhere: No such' create 1 nowhere etc out/package

for usage in 'create -m ABCDE' 'create -l 2' 'check -V 1x good1' check 'info -x' nothing; do
    read -ra words <<<"$usage"
    expect 2 'Try .fwpack' "$fwpack" "${words[@]}"
done
