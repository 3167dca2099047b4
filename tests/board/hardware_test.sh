#!/bin/bash
# GPIO, I2C and the clocks through a real kernel, against the board's devices; what they got stands
# in their log. Then the storage tests without any medium.
#
# The kernel of the emulated board answers a device's request 2 itself (its own FIGETBSZ): clearing
# bits never gets to the registers here, and the address in the record is spoilt. The kernel's
# requests are told by strace all the same; what clearing does is tested on the fake board.
. "${BASH_SOURCE%/*}/common.sh"

cat >"$work/job" <<'END'
try() {
    echo "# $*"
    "$@"
    status=$?
    [ $status -eq 0 ] || echo "exit status $status"
}
traced() { # the numbers of its requests
    strace -o /tmp/trace -e trace=ioctl -e raw=ioctl "$@"
    echo "requests of $*:" $(sed -n 's/^ioctl(0x[0-9a-f]*, \(0x[0-9a-f]\{1,2\}\),.*/\1/p' /tmp/trace)
}
try xgpio 1 1
try xgpio 1 1 5
try xgpio 1 1
try xgpio 7 4 -1
try xgpio 2 3 1
traced xgpio 7 4
traced xgpio 0 2 0
try xi2c 0x50 010 0x1ab
try xi2c 0x50 8
try xgpioi2c 0x150 0x1ff 0x1ac
try xgpioi2c 80 255
try xtime
date +%Y-%m-%dT%H:%M
echo rtc_device_supported=ds1339 >/etc/capabilities.conf
try xtime
echo cam_model=VM37 >/etc/cam_model.conf
rm /dev/misc/ds1339
try xtime
echo cam_model=VM01 >/etc/cam_model.conf
try xtime
try test_sdcard
try test_usb -v
echo "== devices"
cat /run/devices.log
END
board --devices "$top/build/arm-test/board/devices/board_devices" --job "$work/job" ||
    fail "status $?"

esc=$'\033'
time_line() { printf '%s' "${esc}[1;32mREAD RTC TIME : $1/03/07 05:04:09"; }
has "# xgpio 1 1" "0 " "# xgpio 1 1 5" "# xgpio 1 1" "1 " "# xgpio 7 4 -1" "# xgpio 2 3 1" \
    "requests of xgpio 7 4: 0x1 0x2 0x3" "requests of xgpio 0 2 0: 0x2 0x1 0x2" \
    "# xi2c 0x50 010 0x1ab" "# xi2c 0x50 8" "0xAB" "# xgpioi2c 80 255" "0xAC" \
    "# xtime" "$(time_line 2009)" "${esc}[0;39mSat Mar  7 05:04:09 UTC 2009" "2009-03-07T05:04" \
    "# xtime" "$(time_line 2011)" "# xtime" "$(time_line 2011)" \
    "# xtime" "${esc}[1;31mGET RTC ERROR !" "" "${esc}[0;39m# test_sdcard" "failed" \
    "# test_usb -v" "mount, errno : 2, No such file or directory" \
    "can't find file [/mnt/usb/test.txt]" "failed"
has_not "exit status"
sed -n '/^== devices/,$p' "$work/output" | grep -E '^(reg|i2c|hi_rtc|ds1339)' >"$work/got"
diff - "$work/got" <<'END' || fail "the devices got something else"
reg read 101e5008 00000002
reg set 101e5400 00000002
reg set 101e5008 00000002
reg read 101e5008 00000002
reg set 101e0020 00000010
reg set 101fa400 00000010
reg set 101fa040 00000010
reg set 101e0020 00020000
reg set 101e6400 00000008
reg set 101e6020 00000008
reg set 101e0020 00000010
reg read 101fa040 00000010
reg set 101e4400 00000004
i2c write 005008ab
i2c read 00500800
i2c write 0050ffac
i2c read 0050ff00
hi_rtc 801c7009 28 bytes
ds1339 00000001 24 bytes
ds1339 00000001 24 bytes
END
