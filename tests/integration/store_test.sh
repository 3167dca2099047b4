#!/bin/bash
# Tests safe-upgrade and resume-upgrade on a board of files, with an upgrade that stops at a chosen step
# like in a power cut. Each case is a fault and the board's state afterwards, without anyone's help.
# shellcheck disable=SC2015,SC2016,SC2059,SC2068,SC2086,SC2115
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
. "$top/scripts/isolate.sh"
isolate_me "$@"

export world=/mnt PATH=/mnt/bin:$PATH
mount -t tmpfs tmpfs $world # ends with the namespace
mkdir -p $world/{bin,mtd,mtdblock,card,new}
for file in /dev/kmsg /proc/sys/vm/drop_caches; do [ ! -e $file ] || mount --bind /dev/null $file; done
cp "$top"/integration/{safe-upgrade,resume-upgrade,second-checksum,upgrade-store.sh} $world/bin
sed -e "s:/dev/:$world/:" -e "s:^mount_point=.*:mount_point=$world/card:" -e 's:_wait=3:_wait=0:' \
    -e "s:^memory=.*:memory=$world/tmp:" "$top/integration/upgrade-store.conf" >$world/bin/upgrade-store.conf

cat >$world/bin/mount <<'END'
#!/bin/bash
[[ $* == *jffs2* || -e $world/no-mount ]] || exec /bin/mount "$@"
[ -d $world/etc ] && [ ! -e $world/no-mount ] && exec /bin/mount --bind $world/etc "${@: -1}"
END
# Each start takes the next of $cuts. A worn partition loses a byte. The new /etc is mounted and gets nodes
# and marks, as on jffs2.
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
printf '#!/bin/sh\ncp $world/board $1\n' >$world/bin/get_boot_param
chmod +x $world/bin/*

word() { printf "\\x$(printf %02x $(($1 & 255)))\\x$(printf %02x $(($1 >> 8 & 255)))\\0\\0"; }
for n in 1 2; do seq -f "new $n %.0f" 9999 | head -c 40000 >$world/new/$n; done
seq -f 'new 3 %.0f' 9999 | head -c 30000 >$world/new/3
{ printf '\340' && head -c 9999 /dev/zero | tr '\0' '\377'; } >>$world/new/3
mkdir $world/new/etc
echo hostname=camera >$world/new/etc/system.conf && echo server_port=1852 >$world/new/etc/tcp_server.conf
{ printf 3510 && word 1 && word 40000 && word 40000 && word 40000 && cat $world/new/{1,2,3}; } >$world/package

# on CASE [CUT...]: makes a board with old firmware, changed settings, an empty card and a mounted /etc.
on() {
    case=$1
    while mountpoint -q /etc; do umount /etc; done
    ! mountpoint -q $world/card || umount $world/card
    rm -rf $world/{tmp,etc,refuses,no-mount}
    mkdir $world/{tmp,etc} && mount -t tmpfs -o size=400K tmpfs $world/card
    for n in 1 2 3; do seq -f "old $n %.0f" 9999 | head -c 50000 >$world/mtd/$n; done
    echo hostname=gate-7 >$world/etc/system.conf && echo server_port=9000 >$world/etc/tcp_server.conf
    : >$world/worn && : >$world/log && echo MAC=1 >$world/board
    mount --bind $world/etc /etc
    printf '%s\n' ${@:2} >$world/cuts
}
# call SCRIPT [ARGUMENT]...: leaves its status in $status.
call() { { status=0 && "$@" >>$world/log 2>&1 || status=$?; } 2>/dev/null; }
# start: boots until the start-up script goes on.
start() {
    status=137
    while [ $status -eq 137 ]; do
        while mountpoint -q /etc; do umount /etc; done
        rm -rf $world/tmp && mkdir $world/tmp
        call resume-upgrade
    done
}
run() { call safe-upgrade $world/package && start; }
failed=0
bad() { echo "FAILED: $case: $*" && cat $world/log && failed=$((failed + 1)); }
# is OUTCOME FIRMWARE SETTINGS TEXT: checks the result, the contents of flash, and a text in the log.
is() {
    local firmware=mixed found
    ! cmp -s -n 40000 $world/mtd/1 $world/new/1 || ! cmp -s -n 40000 $world/mtd/2 $world/new/2 || firmware=new
    ! grep -q old $world/mtd/1 || ! grep -q old $world/mtd/2 || firmware=old
    found="$(safe-upgrade --result | sed -n 's/outcome=//p') $firmware"
    found+=" $(cat $world/etc/{system,tcp_server}.conf 2>/dev/null | sed 's/.*=//' | paste -s -d +)"
    [ "$found" = "$1 $2 $3" ] && grep -q -- "$4" $world/log && ! grep WITHOUT $world/log || bad "'$found', not '$*'"
}

for cuts in none begin 1 2 3 settings values "1 1 begin" "2 3 settings values" "3 3 3 3 3 3 3"; do
    on "cut at $cuts" $cuts && run && is installed new gate-7+9000 "all settings are there"
done
on "eight cuts" 1 2 3 3 3 3 3 3 3 && run && is given-up new "" "started 8 times, and the partition of /etc"
: >$world/cuts && start && is given-up new "" "given up before: upgrade was"
case="again after giving up" && mkdir $world/etc && echo server_port=1 >$world/etc/tcp_server.conf
mount --bind $world/etc /etc && run && is installed new gate-7+9000 ^reboot

for worn in 1 2; do
    on "worn partition $worn" && echo $worn >$world/worn && run
    is given-up mixed gate-7+9000 "8 times, and the.*partition does"
done
on "worn partition of /etc" && echo 3 >$world/worn && run && is given-up new gate-7+9000 "partition of /etc does"
on "refused by upgrade" && : >$world/refuses && run && is refused old gate-7+9000 "upgrade refuses the package"
on "/etc is not mounted" && umount /etc && rm -r $world/etc && run && is installed new camera+ ^reboot
on "second call" && call safe-upgrade --at-boot $world/package && call safe-upgrade $world/package
is under-way old gate-7+9000 "refused.*under way"
case="resume too late" && call resume-upgrade && is under-way old gate-7+9000 "is mounted already"
start && is installed new gate-7+9000 "start 1 of 8"
on "two calls at once" && mkdir $world/tmp/safe-upgrade.lock && run && is none old gate-7+9000 "refused.*another call"

# Faults of the card between a cut in /etc and the boot.
cut() { on "$1" 3 && call safe-upgrade $world/package; }
damage() { printf x | dd of=$world/card/upgrade/$1 conv=notrunc bs=1 seek=600 status=none; }
cut "card away" && mkdir $world/away && mount --move $world/card $world/away && start && is none new "" "no card"
mount --move $world/away $world/card && start && is installed new gate-7+9000 "all is new"
cut "nothing can be mounted" && : >$world/no-mount && start && is under-way new "" "upgrade did not run"
cut "card in another board" && echo MAC=2 >$world/board && start && is under-way new "" "of another board"
cut "card read-only" && mount -o remount,ro $world/card && start && is under-way new "" "cannot be written"
cut "one record damaged" && damage record && start && is installed new gate-7+9000 "all is new"
cut "both records damaged" && damage record && damage record.2 && start && is given-up new "" "record is damaged"
cut "package damaged" && damage package && start && is given-up new "" "package on the card is damaged"
cut "settings damaged" && damage settings && start && is installed new camera+ "settings are damaged"

# refused PACKAGE TEXT: board and card must not change.
refused() {
    call safe-upgrade "$1" && is none old gate-7+9000 "refused.*$2"
    [ $status -eq 1 ] && [ -z "$(find $world/card -type f ! -name full)" ] ||
        bad "status $status, or files on the card"
}
on "no package" && refused $world/none "no file"
on "half a package" && head -c 50000 $world/package >$world/half && refused $world/half "not a whole package"
on "no room in a partition" && truncate -s 30000 $world/mtd/2 && refused $world/package "mtd/2 has no room"
on "no card" && umount $world/card && refused $world/package "no card"
on "card read-only" && mount -o remount,ro $world/card && refused $world/package "cannot be made"
for room in 0 60 116 120 124 128 132 136 140; do
    on "room for $room KiB" && head -c $(((400 - room) * 1024)) /dev/zero >$world/card/full
    refused $world/package "full, read-only\|cannot be"
done

case=second-checksum && cp $world/new/2 $world/image && second-checksum add $world/image
{ cat $world/image && head -c 9999 /dev/zero | tr '\0' '\377'; } >$world/flash
second-checksum check $world/flash || bad "a complete partition"
for n in 1 39999 40050; do
    { head -c $n $world/image && head -c 9999 /dev/zero | tr '\0' '\377'; } >$world/flash
    ! second-checksum check $world/flash || bad "an incomplete partition"
done
exit $failed
