#!/bin/bash
# safe-upgrade and resume-upgrade on a board of files, with an upgrade that stops like a power cut at a
# chosen step. Each case: what happens to the board, and what becomes of it with nobody's help.
# shellcheck disable=SC2016,SC2059,SC2086,SC2115
set -u
top=$(cd "$(dirname "$0")/../.." && pwd)
. "$top/scripts/isolate.sh"
isolate_me "$@"

export world=/mnt PATH=/mnt/bin:$PATH
mount -t tmpfs tmpfs $world # gone with the namespace
mkdir -p $world/{bin,mtd,mtdblock,card,new}
for file in /dev/kmsg /proc/sys/vm/drop_caches; do [ ! -e $file ] || mount --bind /dev/null $file; done
cp "$top"/integration/{safe-upgrade,resume-upgrade,upgrade-store.sh} $world/bin
sed -e "s:/dev/:$world/:" -e "s:^mount_point=.*:mount_point=$world/card:" -e 's:_wait=3:_wait=0:' \
    -e "s:^memory=.*:memory=$world/tmp:" "$top/integration/upgrade-store.conf" >$world/bin/upgrade-store.conf

cat >$world/bin/mount <<'END'
#!/bin/bash
[[ $* == *jffs2* ]] || exec /bin/mount "$@"
[ -d $world/etc ] && exec /bin/mount --bind $world/etc "${@: -1}"
END
# Each start takes the next of $cuts. What is worn does not take a byte; a new /etc is mounted and gets
# nodes and marks, as on jffs2.
cat >$world/bin/upgrade <<'END'
#!/bin/bash
cut=$(sed -n 1p $world/cuts) && sed -i 1d $world/cuts
stop() { kill -9 $PPID $$; }
at() { [ "$cut" != "$1" ] || stop; }
write() { # N
    truncate -s 0 $world/mtd/$1 && truncate -s 50000 $world/mtd/$1
    dd if=$world/new/$1 of=$world/mtd/$1 conv=notrunc bs=20000 count=1 status=none && at $1
    dd if=$world/new/$1 of=$world/mtd/$1 conv=notrunc bs=1M status=none
    [ "$(cat $world/worn)" != $1 ] || printf x | dd of=$world/mtd/$1 conv=notrunc bs=1 seek=25000 status=none
}
echo "start $*" >>$world/log
mountpoint -q /etc || echo "WITHOUT /etc" >>$world/log
at begin
rm -rf $world/saved && cp -a /etc $world/saved && umount /etc && [ ! -e $world/refuses ] || stop
write 1 && write 2 && rm -rf $world/etc && write 3
cp -a $world/new/etc $world/etc
printf '\300abc' | dd of=$world/mtd/3 conv=notrunc bs=1 seek=30000 status=none
at settings
cp -a $world/saved/system.conf $world/etc && at values
sed -i "s/=.*/=$(sed -n 's/server_port=//p' $world/saved/tcp_server.conf)/" $world/etc/tcp_server.conf
stop
END
printf '#!/bin/sh\necho reboot >>$world/log\nkill -9 $PPID\n' >$world/bin/reboot
chmod +x $world/bin/*

word() { printf "\\x$(printf %02x $(($1 & 255)))\\x$(printf %02x $(($1 >> 8 & 255)))\\0\\0"; }
for n in 1 2; do seq -f "new $n %.0f" 9999 | head -c 40000 >$world/new/$n; done
{ seq -f 'new 3 %.0f' 9999 | head -c 30000 && printf '\340' && head -c 9999 /dev/zero | tr '\0' '\377'; } >$world/new/3
mkdir $world/new/etc && echo hostname=camera >$world/new/etc/system.conf
echo server_port=1852 >$world/new/etc/tcp_server.conf
{ printf 3510 && word 1 && word 40000 && word 40000 && word 40000 && cat $world/new/{1,2,3}; } >$world/package

# factory: a board with old firmware and changed settings, an empty card, /etc mounted.
factory() {
    while mountpoint -q /etc; do umount /etc; done
    mountpoint -q $world/card && umount $world/card
    rm -rf $world/{tmp,etc,refuses}
    mkdir $world/{tmp,etc} && mount -t tmpfs -o size=400K tmpfs $world/card
    for n in 1 2 3; do seq -f "old $n %.0f" 9999 | head -c 50000 >$world/mtd/$n; done
    echo hostname=gate-7 >$world/etc/system.conf
    echo server_port=9000 >$world/etc/tcp_server.conf
    : >$world/worn && : >$world/log
    mount --bind $world/etc /etc
    printf '%s\n' $cuts >$world/cuts
}
# start: the boots until the start-up script goes on.
start() {
    local status=137
    while [ $status -eq 137 ]; do
        while mountpoint -q /etc; do umount /etc; done
        rm -rf $world/tmp && mkdir $world/tmp
        resume-upgrade >>$world/log 2>&1
        status=$?
    done 2>/dev/null
}
# install and then start, for the usual case
run() { { safe-upgrade $world/package >>$world/log 2>&1; } 2>/dev/null; start; }
failed=0
# is OUTCOME FIRMWARE PORT [TEXT]: the result, whose firmware and port are in flash, a text of the log.
is() {
    local outcome firmware=mixed port wanted="${1-} ${2-} ${3-}"
    outcome=$(safe-upgrade --result | sed -n 's/outcome=//p')
    port=$(cat $world/etc/{system,tcp_server}.conf 2>&1 | tr -d '\n')
    cmp -s -n 40000 $world/mtd/1 $world/new/1 && cmp -s -n 40000 $world/mtd/2 $world/new/2 && firmware=new
    grep -q old $world/mtd/1 && grep -q old $world/mtd/2 && firmware=old
    # shellcheck disable=SC2053 # a pattern
    [[ "$outcome $firmware $port" == $wanted ]] && grep -q -- "${4-}" $world/log &&
        ! grep -q WITHOUT $world/log && return
    echo "FAILED: $case: '$outcome $firmware $port', not '$*'" && cat $world/log && failed=$((failed + 1))
}
kept="hostname=gate-7server_port=9000"
card=$world/card/upgrade

for cuts in none begin 1 2 3 settings values "1 1 begin" "2 3 settings values" "3 3 3 3 3 3 3"; do
    case="cut at $cuts" && factory && run && is installed new $kept "all settings are there"
done
cuts="1 2 3 3 3 3 3 3 3"
case="eight cuts" && factory && run && is given-up new "cat:*" "started 8 times, and the partition of /etc"
starts=$(grep -c ^start $world/log) && start && is given-up new "cat:*" "given up before: upgrade was"
[ "$(grep -c ^start $world/log)" -eq "$starts" ] || is "no further start"
case="again after giving up" && : >$world/cuts && mkdir $world/etc && echo server_port=1 >$world/etc/tcp_server.conf
mount --bind $world/etc /etc && run && is installed new $kept ^reboot

cuts=none
case="worn kernel partition" && factory && echo 1 >$world/worn && run && is given-up mixed $kept "the kernel's partition"
case="worn partition of /etc" && factory && echo 3 >$world/worn && run && is given-up new $kept "partition of /etc does"
case="refused by upgrade" && factory && : >$world/refuses && run && is refused old $kept "does not take the package"
case="/etc is not mounted" && factory && umount /etc && rm -r $world/etc && run && is installed new \
    hostname=cameraserver_port= ^reboot
case="resume too late" && factory && safe-upgrade --at-boot $world/package >$world/log && resume-upgrade >>$world/log
is under-way old $kept "is mounted already" && start && is installed new $kept "start 1 of 8"
case="second call" && factory && safe-upgrade --at-boot $world/package >$world/log
safe-upgrade $world/package >>$world/log; is under-way old $kept "refused.*under way"
case="at the same time" && factory && mkdir $world/tmp/safe-upgrade.lock && run && is none old $kept "refused.*another call"

# What happens to the card between a cut in /etc and the boot.
cut() { cuts=3; case=$1; factory; safe-upgrade $world/package >>$world/log 2>&1; } 2>/dev/null
cut "card away" && mount --move $world/card $world/away && start && is none mixed "cat:*" "no card" &&
    mount --move $world/away $world/card && start && is installed new $kept
cut "card read-only" && mount -o remount,ro $world/card && start && is under-way mixed "cat:*" "cannot be written"
cut "one record damaged" && sed -i s/kernel/kernal/ $card/record && start && is installed new $kept
cut "both records damaged" && sed -i s/kernel/kernal/ $card/record* && start && is given-up mixed "cat:*" "record is damaged"
damage() { printf x | dd of=$card/$1 conv=notrunc bs=1 seek=600 status=none; }
cut "package damaged" && damage package && start && is given-up mixed "cat:*" "package on the card is damaged"
cut "settings damaged" && damage settings && start && is installed new "*" "saved settings are damaged"

# What is refused leaves board and card as they were.
refused() { safe-upgrade "$1" >>$world/log 2>&1 && is "a refusal"; is none old $kept "refused.*$2"
    [ -z "$(find $world/card -type f ! -name full)" ] || is "an empty store"; }
cuts=none
case="no package" && factory && refused $world/none "no file"
case="half a package" && factory && head -c 50000 $world/package >$world/half && refused $world/half "not a whole package"
case="no room in a partition" && factory && truncate -s 30000 $world/mtd/2 && refused $world/package "mtd/2 has no room"
case="no card" && factory && umount $world/card && refused $world/package "no card"
case="card read-only" && factory && mount -o remount,ro $world/card && refused $world/package "cannot be made"
factory
for ((room = 0; room < 160; room += 4)); do
    case="room for $room KiB" && head -c $(((400 - room) * 1024)) /dev/zero >$world/card/full
    safe-upgrade --at-boot $world/package >>$world/log 2>&1 && break
    refused $world/package "full, read-only\|cannot be"
done
is under-way old $kept
exit $failed
