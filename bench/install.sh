#!/bin/bash
# install.sh: on the emulated board, upgrade and flashcp -v erase, write and compare a partition of
# 8 MiB. Prints the figures of the first, of the second, and of their ratio
#
#     nand MEDIAN MIN MAX  MEDIAN MIN MAX  MEDIAN MIN MAX    seconds, without upgrade's two pauses of 1 s
#     nor  MEDIAN MIN MAX  MEDIAN MIN MAX  MEDIAN MIN MAX
#
# and, for the emulated NOR flash, the figures of the first and the second
#
#     peak N  N                                 the peak of resident memory, in kB
#     calls N  N                                system calls
#     read N  N                                 bytes, from files and flash
#     written N  N                              bytes, to flash
#     memory N  N                               calls for memory: brk, and mmap without a file
#
# The last four come from a run under strace.
set -euo pipefail
top=$(cd "${BASH_SOURCE%/*}/.." && pwd)
. "$top/board/firmware.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
readonly nor_rounds=${NOR_ROUNDS:-5} nand_rounds=${NAND_ROUNDS:-2}

install_program root
make_kernel_image board old.kernel
# The package's kernel never boots, so it can be small. That keeps the first region short.
seq 20000 >data
SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 \
    -n small -d data new.kernel >/dev/null
make_app_image new $((8 * 1024 * 1024)) new.app
make_etc_image new new.etc
make_flash flash old.kernel new.app new.etc
make_package new 1 package

cat >nor <<'END'
echo "flashcp begins"
time -f "peak flashcp %M" flashcp -v /tmp/app /dev/mtd2 2>&1 >/dev/null
echo "flashcp ends"
upgrade /tmp/flash3 -v &
sleep 1000
END
# NAND with blocks of 32 pages of 512 bytes, as slow as its data sheet says: 12 us to open a page, 200 us
# to program it, 50 ns to move a byte, 2 ms to erase a block. The emulated NOR takes no time. All times
# are from the board's own clock, which counts its instructions.
cat >nand <<'END'
# Keep a process busy: the clock counts instructions, so it hardly advances on an idle board.
chrt -i 0 /bin/job-shell -c 'while :; do :; done' &
modprobe nandsim first_id_byte=0x20 second_id_byte=0x33 parts=512 do_delays=1 access_delay=12 \
    programm_delay=200 erase_delay=2 input_cycle=50 output_cycle=50
nand=$(sed -n 's/^\(mtd[0-9]*\): .*NAND simulator partition 0"/\1/p' /proc/mtd)
[ -n "$nand" ] || exit 1
ln -sf ../$nand /dev/mtd/2
date "+%s.%N flashcp begins"
flashcp -v /tmp/app /dev/$nand >/dev/null
date "+%s.%N flashcp ends"
upgrade /tmp/flash3 -v &
sleep 1000
END
# The log has the board's own time.
cat >log-times.conf <<'END'
module(load="imuxsock")
main_queue(queue.type="Direct")
template(name="line" type="string"
    string="%timegenerated:::date-unixtimestamp%.%timegenerated:::date-subseconds% %syslogtag%%msg%\n")
action(type="omfile" file="/dev/ttyS0" template="line")
END
cat >traced <<'END'
strace -y -o /tmp/flashcp.trace flashcp -v /tmp/app /dev/mtd2 >/dev/null
strace -y -s 80 -o /tmp/upgrade.trace upgrade /tmp/flash3 -v &
sleep 1000
END
# upgrade calls this to reboot. It reads upgrade's figures last.
cat >reboot <<'SCRIPT'
#!/bin/sh
for status in /proc/[0-9]*/status; do
    grep -q '^Name:.upgrade$' "$status" || continue
    sed -n 's/^VmHWM:[^0-9]*\([0-9]*\).*/peak upgrade \1/p' "$status"
done
for name in flashcp upgrade; do
    [ -e /tmp/$name.trace ] || continue
    # From upgrade's trace, only the calls for the second region.
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

# run JOB OPTION...: runs it on the board and appends its output to JOB.all.
run() {
    local status=0
    cp flash flash.used
    install -D -m 755 reboot root/sbin/reboot
    "$top/board/run" --install root "${@:2}" --timeout 3600 --put package:/tmp/flash3 \
        --put new.app:/tmp/app --job "$1" flash.used >output 2>&1 || status=$?
    [ $status -eq 75 ] || {
        cat output >&2
        echo "the board ended with status $status" >&2
        exit 1
    }
    cat output >>"$1.all"
}

# times JOB: the line with the seconds, out of lines that begin with the time.
times() {
    awk -v name="$1" '
        function spread(values, count,    i, j, swap) {
            for (i = 1; i <= count; ++i) for (j = i + 1; j <= count; ++j)
                if (values[j] < values[i]) { swap = values[i]; values[i] = values[j]; values[j] = swap }
            return " " values[int((count + 1) / 2)] " " values[1] " " values[count]
        }
        / flashcp begins$/ { start = $1 }
        / flashcp ends$/ { theirs[++count] = $1 - start }
        /CFlash_Erase. =+> .*mtd.2/ { start = $1 }
        /CFlash_Erase. =+> .*mtd.3/ { ours[count] = $1 - start - 2; ratios[count] = ours[count] / theirs[count] }
        END { print name spread(ours, count) spread(theirs, count) spread(ratios, count) }' "$1.all"
}

for ((round = 0; round < nand_rounds; ++round)); do
    run nand --count-time --put log-times.conf:/usr/share/board/rsyslog.conf
done
times nand
for ((round = 0; round < nor_rounds; ++round)); do
    run nor --log-times
done
times nor
run traced --log-times
awk '$2 ~ /^(peak|calls|read|written|memory)$/ { figure[$2, $3] = $4 }
    END {
        split("peak calls read written memory", names)
        for (i = 1; i <= 5; ++i)
            print names[i], figure[names[i], "upgrade"], figure[names[i], "flashcp"]
    }' {nor,traced}.all
