#!/bin/bash
# power_cut_test.sh upgrade|safe-upgrade MOMENT...: the power fails during an upgrade, by the program
# alone or with the scripts of integration/. A moment is REGION:SECONDS, so long after the writing of
# region 1 to 3 began; further ones behind commas cut what resumes it. Then the board boots on what is
# in flash; after the program alone the same upgrade is run once more. A line per moment: what the last
# cut left, what the board came up with, and how it ended.
. "${BASH_SOURCE%/*}/common.sh"

program=$1
shift
make_package new 1 "$work/package"
cp "$work/flash" "$work/factory"
truncate -s 64M "$work/blank"
echo 'start=2048, type=c' | sfdisk -q "$work/blank"
mformat -F -i "$work/blank@@1M" ::

cat >"$work/look" <<'END'
for name in network/network network/wireless system serverinfo cam_model tcp_server stream videodecoder \
    lighttpd/lighttpd; do cat /etc/$name.conf; done 2>/dev/null | sed 's/ = /=/' >/tmp/all
echo "found: $(cat /etc/release 2>/dev/null || echo no) $(sha256sum </tmp/all | cut -c 1-64)"
END
cat >"$work/first" <<'END'
printf 'DHCP=0\nIPADDR=10.1.2.3\n' >/etc/network/network.conf
echo ESSID=roof >/etc/network/wireless.conf
echo hostname=gate-7 >/etc/system.conf
echo server=10.1.2.4 >/etc/serverinfo.conf
echo cam_model=VM42 >/etc/cam_model.conf
echo server_port=9000 >/etc/tcp_server.conf
printf 'stream_%d_port=900%d\n' 1 1 2 2 3 3 >/etc/stream.conf
echo video_type=1 >/etc/videodecoder.conf
echo server.port=8080 >/etc/lighttpd/lighttpd.conf
. /job/look
END
command="$program /tmp/flash3"
[ "$program" = safe-upgrade ] || command+=" -v"
echo "$command" >>"$work/first"
if [ "$program" = upgrade ]; then
    echo ". /job/look; $command" >"$work/again"
    rest=(--job "$work/again" --job "$work/look")
else
    rest=(--job "$work/look")
fi

# state REGION: whether it is as before the upgrade, as after it, or neither.
state() {
    if cmp -s <(region "$1" | head -c "$(stat -c %s "$work/new.$1")") "$work/new.$1"; then
        echo new
    elif cmp -s <(region "$1" "$work/factory") <(region "$1"); then
        echo old
    else
        echo partial
    fi
}

# power_on [option...]: with the card and the package in memory.
power_on() {
    status=0
    board --put "$work/package:/tmp/flash3" --put "$work/look:/job/look" --kept-sd "$work/card" \
        --timeout 400 "$@" || status=$?
}

printf '%-12s %-8s %-8s %-8s %-9s %-12s %s\n' "cut after" kernel app /etc boots "comes up with" "and ends with"
for moment in "$@"; do
    cp "$work/factory" "$work/flash"
    cp "$work/blank" "$work/card"
    job=$work/first
    for cut in ${moment//,/ }; do
        power_on --cut "write [/dev/mtd/${cut/:/]:}" --job "$job"
        grep -q '^board: power cut' "$work/output" || fail "no cut at $moment (status $status)"
        [ "$job" = "$work/look" ] || mine=$(sed -n 's/^found: old //p' "$work/output")
        job=$work/look
    done
    left=("$(state kernel)" "$(state app)" "$(state etc)")
    power_on "${rest[@]}"
    [ $status -eq 0 ] || fail "the board ended with status $status"
    mapfile -t found < <(awk -v mine="$mine" '
        $1 == "found:" { print $2, $3 == mine ? "kept" : "lost" }' "$work/output")
    boots=$(sed -n "1s/.*kernel '\(.*\)' from flash/\1/p" "$work/output")
    printf '%-12s %-8s %-8s %-8s %-9s %-12s %s\n' "$moment" "${left[@]}" "${boots:-recovery}" \
        "${found[0]}" "${found[-1]}"
    holds kernel "$work/new.kernel" && holds app "$work/new.app"
    # The program alone keeps the settings as long as the old /etc is there to be read again.
    case "$program ${found[0]}" in
    "safe-upgrade "* | "upgrade old kept") [ "${found[-1]}" = "new kept" ] || fail "settings lost" ;;
    esac
    [ "${found[-1]% *}" = new ] || fail "the firmware is not new"
done
