#!/bin/bash
# The serial tests and the camera board, through real UARTs and a real driver.
. "${BASH_SOURCE%/*}/common.sh"

for line in 1 2; do
    mkfifo "$work/line$line.in" "$work/line$line.out"
    "$top/tests/board/serial_peer.pl" "$work/line$line.out" "$work/line$line.in" &
done

cat >"$work/job" <<'END'
exec 8<>/dev/ttyAMA1 9<>/dev/ttyAMA2 # the lines keep their settings while somebody has them open
plug() { # LINE MODE WORD...
    local device=/dev/ttyAMA$1
    shift
    printf 'mode %s\n' "$*" >$device
    sleep 0.5
}
stty -F /dev/ttyAMA1 115200 parenb -crtscts && stty -F /dev/ttyAMA2 38400 -echo
stty -g -F /dev/ttyAMA1 >/tmp/before1 && stty -g -F /dev/ttyAMA2 >/tmp/before2
check() { # LINE APPLET [OPTION]
    echo "== $2 $3"
    "$2" $3
    echo "exit status $?"
    stty -g -F /dev/ttyAMA$1 | cmp -s - /tmp/before$1 || echo "settings changed"
}
plug 1 loopback && check 1 test_rs485
plug 2 loopback && check 2 test_rs232
plug 1 silent && check 1 test_rs485 -v
plug 1 wrong-byte 7 && check 1 test_rs485 -v
plug 2 wrong-byte 3 && check 2 test_rs232 -V
plug 2 nine-ten && check 2 test_rs232 -v

seventh() { printf '000000000000%s000000' "$1"; } # ten bytes, the seventh being this
camera() { # MODEL FLAG VERSION
    plug 2 camera E0=$(seventh $1) 5C=$(seventh $2) E3=$(seventh $3)
    check 2 get_cb_cam_info
}
camera 26 00 10 && camera 16 01 13
echo "== short replies" && plug 2 camera E0=0000 5C=$(seventh 01) E3=FF && check 2 get_cb_cam_info
echo "== noise" && plug 2 camera E0=FFE001FFFFFF46A55AFF 5C=00000000000000FFFFFF E3=FFFFFFFFFFFF12FFFFFF
check 2 get_cb_cam_info -v
END
status=0
board --timeout 150 --serial "pipe:$work/line1" --serial "pipe:$work/line2" --job "$work/job" ||
    status=$?
[ $status -eq 0 ] || fail "status $status"

frame() { # HEX: ten bytes as the trace shows them
    printf "$1 %.0s" 0 1 2 3 4 5 6 7 8 9
}
has "== test_rs485 " "successful" "exit status 0" \
    "== test_rs232 " "" "successful" "exit status 0" \
    "== test_rs485 -v" "PATTERN [0xA5] => RECV [       0]:  : failed" "failed" "exit status 0" \
    "== test_rs485 -v" "PATTERN [0xA5] => RECV [      10]: $(frame A5) : successful" \
    "PATTERN [0xFF] => RECV [      10]: FF FF FF FF FE FF FF FF FF FF  : failed" "failed" \
    "== test_rs232 -V" "" "failed" \
    "== test_rs232 -v" ""
# The driver hands over what is in the UART's FIFO: eleven to all nineteen bytes.
grep -Eqx "PATTERN \[0xA5\] => RECV \[      1[1-9]\]: (A5 ){11,19} : successful" "$work/output" ||
    fail "nine and then ten bytes"
has "VERSION=10" "MODEL=2M Panasonic" "RESOLUTION=1080p" \
    "VERSION=13" "MODEL=1.3M Panasonic" "RESOLUTION=1280x1024" \
    "== short replies" "VERSION=01" "MODEL=Unknown 00" "RESOLUTION=" \
    "== noise" "RECV [      10]: FF E0 01 FF FF FF 46 A5 5A FF " "VERSION=12" "MODEL=2M Sony" \
    "RESOLUTION=1080p"
has_not "settings changed"
