#!/bin/bash
# get_boot_param on the environment of a real boot loader in flash; then load_drv, whose tools tell
# what they are called with, and xfactorydefault on real files.
. "${BASH_SOURCE%/*}/common.sh"

cat >"$work/environment" <<'END'
bootcmd=bootm 0x80080000
bootdelay=3
ethaddr=02:51:56:0a:0b:0c
serial_no=QV12345678-9
product_code=QV-4, 100%% tested
END
read -r boot_start _ < <(partition boot)
mkenvimage -s 0x10000 -o "$work/environment.bin" "$work/environment"
dd if="$work/environment.bin" of="$work/flash" bs=64K seek=$((boot_start / 65536 + 4)) \
    conv=notrunc status=none

# shellcheck disable=SC2016 # for the board's shell
printf '#!/bin/sh\necho "${0##*/} $*"\n' >"$work/tool"
cat >"$work/job" <<'END'
get_boot_param /tmp/out
echo && echo "== exported"
cat /tmp/out
for model in VM44 VM37; do
    echo "== $model"
    echo cam_model=$model >/etc/cam_model.conf
    load_drv
done
echo "== factory default"
mkdir -p /etc/default
echo default >/etc/default/system.conf
echo kept >/tmp/kept
long=/etc/$(printf %0250d 1)
cat >/tmp/list <<LIST
[settings]
#/etc/default/system.conf /tmp/kept
/etc/none /tmp/kept
-p /etc/default/system.conf /etc/system.conf
$long/etc/default/system.conf /tmp/kept
/etc/default/system.conf /etc/stream.conf
LIST
xfactorydefault /tmp/list 2>/tmp/errors
cat /etc/system.conf /etc/stream.conf /etc/tcp_server.conf /tmp/kept
grep -c ^cp: /tmp/errors
END
board --put "$work/tool:/sbin/insmod" --put "$work/tool:/bin/reg" --job "$work/job" ||
    fail "status $?"

esc=$'\033'
line="${esc}[0;39m${esc}[1;32m    "
has "${esc}[1;32mGET BOOT PARAM" "${line}MAC [02:51:56:0a:0b:0c]" "${line}SERIAL_NO [QV12345678]" \
    "${line}PRODUCT_CODE [QV-4, 100% tested]" "${esc}[0;39m"
sed -n '/^== exported/,$p' "$work/output" >"$work/got"
diff - "$work/got" <<'END' || fail "the job's output differs"
== exported
MAC=02:51:56:0a:0b:0c
SERIAL_NO=QV12345678
PRODUCT_CODE=QV-4, 100% tested
== VM44
insmod /dvs/Hi3512reg.ko
insmod /dvs/extdrv/tw_9910.ko
insmod /dvs/extdrv/tlv_320.ko
reg -c 0x101E0020 0x00100000
reg -s 0x101E5400 0x00000002
reg -c 0x101E5008 0x00000002
== VM37
reg -c 0x20110094 0x00000001
reg -c 0x20110270 0x00000004
insmod /dvs/extdrv/ds_1339.ko
insmod /dvs/extdrv/tw_2864.ko
== factory default
default
default
server_port=1852
kept
1
END
