#!/bin/bash
# test_sdcard and test_usb on real media in the slots.
. "${BASH_SOURCE%/*}/common.sh"

medium() { # FILE
    truncate -s 64M "$1"
    echo 'start=2048, type=c' | sfdisk -q "$1"
    mformat -F -i "$1@@1M" ::
    mcopy -i "$1@@1M" "$work/test.txt" ::
}
printf 'hello\ntest device 01\n' >"$work/test.txt" && medium "$work/sd"
printf 'test devices\n' >"$work/test.txt" && medium "$work/usb"

cat >"$work/job" <<'END'
tries=60
until [ -e /dev/sda1 ] && [ -e /dev/mmcblk0p1 ] || [ $((tries -= 1)) -eq 0 ]; do sleep 0.5; done
put() { # what stands on the card; nothing: no file
    mount -t vfat /dev/mmcblk0p1 /mnt/sd
    if [ $# -gt 0 ]; then printf "$@" >/mnt/sd/test.txt; else rm /mnt/sd/test.txt; fi
    umount /mnt/sd
}
try() {
    echo "# $*"
    "$@"
    mountpoint -q /mnt/sd || mountpoint -q /mnt/usb && echo "still mounted"
}
try test_sdcard
try test_sdcard -v
try test_usb
try test_usb -v
put 'no\ntest devic\n' && try test_sdcard
put && try test_sdcard -v
exit 0
END
board --sd "$work/sd" --usb "$work/usb" --job "$work/job" || fail "status $?"
has "# test_sdcard" "successful" "# test_sdcard -v" "READ : " "hello" "test device 01" "successful" \
    "# test_usb" "successful" "# test_usb -v" "READ : " "test devices" "successful" \
    "# test_sdcard" "failed" \
    "# test_sdcard -v" "can't find file [/mnt/sd/test.txt]" "failed"
has_not "still mounted"
has_not "errno"
