#!/bin/bash
# Flash that fails, by the kernel's simulated NAND: an installation whose first partition has a block
# that is not erased, and whose second has a page that is not written. The third is the board's own.
. "${BASH_SOURCE%/*}/common.sh"

# Regions of whole pages: NAND takes nothing less.
readonly size=102400 etc_size=131072
make_app_image new $((size - 64)) "$work/data"
mkimage -A arm -O linux -T kernel -C none -n new -d "$work/data" "$work/new.kernel" >/dev/null
make_app_image new $size "$work/new.app"
truncate -s $etc_size "$work/new.etc"
make_package new 1 "$work/package"

cat >"$work/job" <<'END'
# Partitions of 16 blocks of 32 pages of 512 bytes. Block 3 is marked as bad, block 5 reports that it
# was not erased although it was; page 544, the 33rd of the second partition, is written only once.
modprobe nandsim first_id_byte=0x20 second_id_byte=0x33 parts=16,16 \
    badblocks=3 weakblocks=5:0 weakpages=544:1
for n in 1 2; do
    device=$(sed -n "s/^\(mtd[0-9]*\): .*NAND simulator partition $((n - 1))\"/\1/p" /proc/mtd)
    dd if=/dev/zero of=/dev/$device bs=16K count=16 2>/dev/null # what it holds before
    ln -sf ../$device /dev/mtd/$n
done
pages() { # N FILE: the first and last page of the device that differs from the file
    head -c $(stat -c %s $2) /dev/mtd/$1 | cmp -l - $2 |
        awk '{ page = int(($1 - 1) / 512) } NR == 1 { first = page } END {
            print (NR > 0 ? first " to " page : "none") }'
}
xupgrade -f
echo "pages that differ: $(pages 1 /new.kernel), $(pages 2 /new.app), $(pages 3 /new.etc)"
cat /etc/release
END
board --put "$work/package:/tmp/flash3" --put "$work/new.kernel:/new.kernel" --timeout 180 \
    --put "$work/new.app:/new.app" --put "$work/new.etc:/new.etc" --job "$work/job" ||
    fail "status $?"

# three_times LINE...: with the number of the attempt in place of an N.
three_times() {
    local attempt
    for attempt in 0 1 2; do
        printf '%s\n' "${@/\[N\]/[$attempt]}"
    done
}

erased='log: xupgrade: [CFlash_Erase] =================> [/dev/mtd'
not_erased="log: xupgrade:     [CFlash_Erase] MTD Erase failure [/dev/mtd/1]"
cat >"$work/log" <<END
log: xupgrade: CHECK VERSION : 1 vs 1
log: xupgrade: [CFlash_TEVWrite] write [/dev/mtd/1]
$(three_times "$erased/1]" "$not_erased" "$not_erased" \
    "log: xupgrade: [CFlash_NWrite] offset : 20, size : $size" \
    "log: xupgrade: [CFlash_Confirm] offset : 20, size : $size" \
    "log: xupgrade: [CFlash_TEVWrite] /dev/mtd/1 cmp fail[N]")
log: xupgrade: [CFlash_TEVWrite] write [/dev/mtd/2]
$(three_times "$erased/2]" \
    "log: xupgrade: [CFlash_NWrite] offset : $((20 + size)), size : $size" \
    "log: xupgrade: [CFlash_NWrite] full_write : /dev/mtd/2 : Input/output error" \
    "log: xupgrade: [CFlash_TEVWrite] /dev/mtd/2 write fail[N]")
log: xupgrade: [CFlash_TEVWrite] write [/dev/mtd/3]
$erased/3]
log: xupgrade: [CFlash_NWrite] offset : $((20 + 2 * size)), size : $etc_size
log: xupgrade: [CFlash_Confirm] offset : $((20 + 2 * size)), size : $etc_size
END
failure=$'\n/dev/mtd/1: MTD Erase failure: Input/output error'
cat >"$work/console" <<END
The timeout was set to 30 seconds
$(three_times "$failure" "$failure" "[CFlash_Confirm] cmp error : /dev/mtd/1 : Input/output error")
$(three_times "[CFlash_NWrite] full_write : /dev/mtd/2 : Input/output error")
Upgrade complete.
pages that differ: 96 to 127, 33 to 199, none
new
END
diff "$work/log" <(grep '^log: ' "$work/output") || fail "the log is another one"
# Without what kill says when nobody holds /etc.
diff "$work/console" <(grep -v -e '^log: ' -e '^boot loader: ' "$work/output" |
    perl -0pe 's/\nUsage:\n kill .*?see kill\(1\)\.\n//sg') ||
    fail "the messages are others"
