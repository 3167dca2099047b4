#!/bin/bash
# Checks which files a board of a fleet refuses, and its reports to the server. Flash must not change.
. "${BASH_SOURCE%/*}/power_cut.sh"
PATH=$PATH:$top/build/host:$top/integration/swupdate

# Name, kernel's name, marker, signer and expected reason. The board runs 1.5 and trusts 'ours'.
cases="unsigned    2.0.0 3510 nobody not signed
key         2.0.0 3510 theirs Authentication of all signatures failed
description 2.0.0 3510 ours   Signature verification failed
package     2.0.0 3510 ours   HASH mismatch
hardware    2.0.0 3520 ours   SW not compatible with hardware
running     1.5   3510 ours   No reinstalling allowed
older       1.4   3510 ours   No downgrading allowed
half        2.0.0 3510 ours   Channel get operation aborted
down        2.0.0 3510 ours
full        2.0.0 3510 ours   safe-upgrade"
make-key ours ours && make-key theirs theirs
make_kernel_image 1.5 old.kernel
make_app_image new 100000 new.app # small, because the test sends it often
truncate -s 64K new.etc
while read -r name kernel marker signer _; do
    mkimage -A arm -O linux -T kernel -C none -n "$kernel" -d new.app new.kernel >/dev/null
    make_package new 1 package
    printf %s "$marker" | dd of=package conv=notrunc status=none
    mkdir -p "www/$name"
    [ "$signer" != nobody ] || signer=
    make-swu ${signer:+--sign "$signer.key" "$signer.crt"} package "www/$name"
done <<<"$cases"
sed -i 's/"3510.1"/"5310.1"/' www/description/firmware.swu # keeps the checksum in the archive
sed -i 's/^new 9999$/new 9998/' www/package/firmware.swu
sed -i 's/ .*/ 2.0/' www/running/latest # announced as another

cat >serve <<END && chmod +x serve
#!/bin/sh
request=\$(sed -u '/^\r*\$/q')
printf '%s\n' "\$request" | sed -n 's/^GET //p' >>"$work/asked"
case \$request in *"GET /down"*) exit ;; *"GET /half/f"*) limit=60000 ;; *) limit=1000000 ;; esac
printf '%s\r\n\r\n' "\$request" | busybox httpd -i -h "$work/www" | head -c \$limit
END
cat >job <<'END'
ip addr add 10.0.2.15/24 dev eth0 && ip link set eth0 up
for case in unsigned key description package hardware running older half down full; do
    [ $case != full ] || { mount /dev/mmcblk0p1 /mnt/sd && head -c 100M /dev/zero >/mnt/sd/fill; } 2>/dev/null
    url=http://10.0.2.100/$case
    { cat /conf && echo "question=$url/latest update_file=$url/firmware.swu certificate=/crt board=1 spread=0 memo=/tmp/$case"; } >/sbin/update-agent.conf
    echo "$case:" $(update-agent once || echo "status $?")
done
END
make_card sd
make_flash flash old.{kernel,app,etc} && cp flash before
"$top/board/run.sh" --web "$work/serve" --sd sd --install "$top/.cache/engine/root" --install root --timeout 600 \
    --job job --put "$top/integration/swupdate/update-agent:/sbin/update-agent" --put ours.crt:/crt \
    --put "$top/integration/swupdate/update-agent.conf:/conf" \
    --put "$top/integration/swupdate/board-state.sh:/sbin/board-state.sh" flash \
    >output 2>&1 || fail "status $?"
cmp -n 14M before flash || fail "flash changed" # except /etc, which was mounted
while read -r name _ _ _ reason; do
    grep -q "^$name:.*$reason.*status 1" output || fail "$name: not refused for '$reason'"
    [ "$name" = down ] || grep -q "^/$name/latest?.*running=1.5&outcome=refused&reason=${reason// /+}" asked ||
        fail "$name: the board did not report why"
done <<<"$cases"
