#!/bin/bash
# A package of either layout is installed, the settings are carried over or not, and the board
# reboots by itself. Argument: layout1, layout3 or factory-default.
. "${BASH_SOURCE%/*}/common.sh"

layout=1 options=-v carried=yes
case $1 in
layout1) ;;
layout3) layout=3 ;;
factory-default) options="-f -v" carried= ;;
esac
make_package new $layout "$work/package"

cat >"$work/upgrade" <<END
echo VERSION=$layout >/usr/upgrade
echo server_port=9000 >/etc/tcp_server.conf
sed -i s/stream_2_port=.*/stream_2_port=9002/ /etc/stream.conf
rm /etc/videodecoder.conf
echo IPADDR=10.1.2.3 >/etc/network/network.conf
sleep 1000 </etc/release & # holds /etc open
# What the board's services look like to the program; one does not listen to SIGTERM.
cp /bin/sleep /bin/confd
cp /bin/sleep /bin/AVServer
/bin/confd 1000 &
(trap '' TERM; exec /bin/AVServer 1000) &
(sleep 1; upgrade /tmp/flash3 $options) &
wait
sleep 60
END
cat >"$work/look" <<'END'
cat /etc/release
head -v -n 9 /etc/tcp_server.conf /etc/stream.conf /etc/videodecoder.conf /etc/network/network.conf
END
status=0
board --put "$work/package:/tmp/flash3" --job "$work/upgrade" --job "$work/look" || status=$?
[ $status -eq 0 ] || fail "status $status"

has "boot loader: kernel 'old' from flash" \
    "log: upgrade: Upgrade Daemon v1.0.0.1(2012.09.25-00:50+0000) start" \
    "log: upgrade: CHECK VERSION : $layout vs $layout" \
    "log: upgrade: [CFlash_TEVWrite] write [/dev/mtd/1]" \
    "log: upgrade: [CFlash_Erase] =================> [/dev/mtd/1]" \
    "CFlash_TEVWrite : flash1 complete" \
    "CFlash_TEVWrite : flash2 complete" \
    "CFlash_TEVWrite : flash3 complete" \
    "log: upgrade: Upgrade complete." \
    "boot loader: kernel 'new' from flash" \
    "new"
has "CFlash_TEVWrite : flash3 complete" "Upgrade complete." # with -v on the console too
has_not "fail["
has_not "[ERROR]"
holds kernel "$work/new.kernel"
holds app "$work/new.app"

if [ -n "$carried" ]; then
    has "==> /etc/tcp_server.conf <==" "server_port=9000" "stream_2_port=9002" "video_type=0" \
        "IPADDR=10.1.2.3"
else
    has "==> /etc/tcp_server.conf <==" "server_port=1852" "stream_2_port=1853" "video_type=0" \
        "IPADDR=192.168.0.100"
    holds etc "$work/new.etc"
fi
