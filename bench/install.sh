#!/bin/bash
# install.sh: on the emulated board, upgrade and flashcp -v erase, write and compare a partition of
# 8 MiB. Prints of the first and of the second
#
#     seconds MEDIAN MIN MAX  MEDIAN MIN MAX    without upgrade's two pauses of a second
#     peak N  N                                 the most memory resident, in kB
#     calls N  N                                system calls
#     read N  N                                 bytes, from files and flash
#     written N  N                              bytes, to flash
#     memory N  N                               calls for memory: brk, and mmap without a file
#
# the last four from a run under strace.
set -euo pipefail
. "${BASH_SOURCE%/*}/../tests/integration/common.sh"
readonly rounds=5

# Nothing boots from this flash again, so the kernel need not be one.
seq 20000 >"$work/data"
SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 \
    -n small -d "$work/data" "$work/new.kernel" >/dev/null
make_app_image new $((8 * 1024 * 1024)) "$work/new.app"
make_package new 1 "$work/package"

cat >"$work/timed" <<'END'
echo "flashcp begins"
time -f "peak flashcp %M" flashcp -v /tmp/app /dev/mtd2 2>&1 >/dev/null
echo "flashcp ends"
upgrade /tmp/flash3 -v &
sleep 1000
END
cat >"$work/traced" <<'END'
strace -y -o /tmp/flashcp.trace flashcp -v /tmp/app /dev/mtd2 >/dev/null
strace -y -s 80 -o /tmp/upgrade.trace upgrade /tmp/flash3 -v &
sleep 1000
END
# What upgrade reboots by: the last look at it.
cat >"$work/reboot" <<'SCRIPT'
#!/bin/sh
for status in /proc/[0-9]*/status; do
    grep -q '^Name:.upgrade$' "$status" || continue
    sed -n 's/^VmHWM:[^0-9]*\([0-9]*\).*/peak upgrade \1/p' "$status"
done
for name in flashcp upgrade; do
    [ -e /tmp/$name.trace ] || continue
    # Of upgrade's what belongs to the second region.
    awk -v name=$name '
        /CFlash_Erase. =+> / { other = !/mtd.2/; begun = 1 }
        name == "upgrade" && (other || !begun) { next }
        { ++calls }
        / = [0-9]+$/ && /^readv?\(/ { bytes_read += $NF }
        / = [0-9]+$/ && /^write\([0-9]+<.dev.mtd2>/ { written += $NF }
        /^brk\(|MAP_ANONYMOUS/ { ++memory }
        END { print "calls", name, calls; print "read", name, bytes_read
              print "written", name, written; print "memory", name, memory + 0 }' /tmp/$name.trace
done
sync
echo b >/proc/sysrq-trigger
SCRIPT

run() {
    cp "$work/flash" "$work/flash.factory"
    local status=0
    install -D -m 755 "$work/reboot" "$work/root/sbin/reboot"
    board --log-times --timeout 300 --put "$work/package:/tmp/flash3" --put "$work/new.app:/tmp/app" \
        --job "$1" || status=$?
    [ $status -eq 75 ] || fail "status $status"
    cat "$work/output" >>"$work/all"
    mv "$work/flash.factory" "$work/flash"
}

for ((round = 0; round < rounds; ++round)); do
    run "$work/timed"
done
run "$work/traced"

awk '
    function keep(name, value) { values[name, ++count[name]] = value }
    function spread(name,    i, j, swap) {
        for (i = 1; i <= count[name]; ++i) for (j = i + 1; j <= count[name]; ++j)
            if (values[name, j] < values[name, i]) {
                swap = values[name, i]; values[name, i] = values[name, j]; values[name, j] = swap
            }
        return values[name, int((count[name] + 1) / 2)] " " values[name, 1] " " values[name, count[name]]
    }
    / flashcp begins$/ { start = $1 }
    / flashcp ends$/ { keep("flashcp", $1 - start) }
    /CFlash_Erase. =+> .*mtd.2/ { start = $1 }
    /CFlash_Erase. =+> .*mtd.3/ { keep("upgrade", $1 - start - 2) }
    $2 ~ /^(peak|calls|read|written|memory)$/ { figure[$2, $3] = $4 }
    END {
        # The traced run is the last one, and slow: it has no part in the times.
        --count["upgrade"]
        print "seconds", spread("upgrade"), spread("flashcp")
        split("peak calls read written memory", names)
        for (i = 1; i <= 5; ++i)
            print names[i], figure[names[i], "upgrade"], figure[names[i], "flashcp"]
    }' "$work/all"
