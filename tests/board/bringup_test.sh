#!/bin/bash
# get_boot_param on a boot loader's own environment image in flash, load_drv and xfactorydefault
# through the board's shell.
. "${BASH_SOURCE%/*}/common.sh"

printf 'bootdelay=3\nethaddr=02:00:00:12:34:56\nproduct_code=QV-12 50%%%%\nserial_no=12345678901\n' |
    mkenvimage -s 0x20000 -o "$work/environment" -
read -r boot _ < <(partition boot)
dd if="$work/environment" of="$work/flash" bs=64K seek=$(((boot + 0x40000) / 65536)) conv=notrunc \
    status=none

cat >"$work/job" <<'END'
get_boot_param /tmp/parameters && cat /tmp/parameters
printf '#!/bin/sh\necho insmod "$@" >>/tmp/loaded\n' >/sbin/insmod
printf '#!/bin/sh\necho reg "$@" >>/tmp/loaded\nexit 1\n' >/bin/reg
chmod +x /sbin/insmod /bin/reg
echo cam_model=VM44 >/etc/cam_model.conf
load_drv && cat /tmp/loaded
mkdir /etc/default
echo factory >/etc/default/system.conf && chmod 400 /etc/system.conf
printf '[files]\n# comment\n/etc/none /etc/no\n/etc/default/system.conf /etc/system.conf\n' >/etc/list
xfactorydefault /etc/list && cat /etc/system.conf
xfactorydefault
END
board --job "$work/job" || fail "status $?"
esc=$'\033'
has "${esc}[1;32mGET BOOT PARAM" "${esc}[0;39m${esc}[1;32m    MAC [02:00:00:12:34:56]" \
    "${esc}[0;39m${esc}[1;32m    SERIAL_NO [1234567890]" \
    "${esc}[0;39m${esc}[1;32m    PRODUCT_CODE [QV-12 50%]" \
    "${esc}[0;39mMAC=02:00:00:12:34:56" "SERIAL_NO=1234567890" "PRODUCT_CODE=QV-12 50%" \
    "insmod /dvs/Hi3512reg.ko" "insmod /dvs/extdrv/tw_9910.ko" "insmod /dvs/extdrv/tlv_320.ko" \
    "reg -c 0x101E0020 0x00100000" "reg -s 0x101E5400 0x00000002" "reg -c 0x101E5008 0x00000002" \
    "cp: cannot stat '/etc/none': No such file or directory" "factory" \
    "'xfactorydefault' usage : " "        <replace filename> "
