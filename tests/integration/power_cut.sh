# Sourced by the scripts that cut the power: a board with old firmware and the user's settings, a package
# for it, and the state of both after a cut and the next boots.
# shellcheck shell=bash

set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$top/board/firmware.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
DESTDIR=root cmake --install "$top/build/arm" --prefix / >/dev/null
make_release old
make_release new
make_package new 1 package

mkdir -p root/mine/network root/mine/lighttpd # the settings, as the board has them in /etc
printf 'DHCP=0\nIPADDR=10.1.2.3\n' >root/mine/network/network.conf
echo ESSID=roof >root/mine/network/wireless.conf
echo hostname=gate-7 >root/mine/system.conf
echo server=10.1.2.4 >root/mine/serverinfo.conf
echo cam_model=VM42 >root/mine/cam_model.conf
echo server_port=9000 >root/mine/tcp_server.conf
printf 'stream_%d_port=900%d\n' 1 1 2 2 3 3 >root/mine/stream.conf
echo video_type=1 >root/mine/videodecoder.conf
echo server.port=8080 >root/mine/lighttpd/lighttpd.conf
cat >look <<'END'
lost=$(cd /mine && find . -type f | while read -r file; do cmp -s "$file" "/etc/$file" || echo "$file"; done)
echo "found: $(cat /etc/release 2>/dev/null || echo no) $([ -z "$lost" ] && echo kept || echo lost)"
END

fail() {
    echo "FAILED: $*" >&2
    cat output >&2
    exit 1
}

# state REGION: prints whether it holds the new image, the old one (except for jffs2's changes) or neither.
state() {
    local start size release
    read -r start size < <(partition "$1")
    for release in new old; do
        { cmp -l -n "$size" -i "$start:0" flash "$release.$1" 2>/dev/null || true; } |
            awk '$3 != 377 && !($2 == 300 && $3 == 340) { bad = 1; exit } END { exit bad }' || continue
        echo $release && return
    done
    echo partial
}

# power_on [option...]: boots with the card in its slot and the package in memory.
power_on() {
    status=0
    "$top/board/run" --install root --put package:/tmp/flash3 --kept-sd card --timeout 400 "$@" flash \
        >output 2>&1 || status=$?
}

row() {
    printf '%-14s %-8s %-8s %-8s %-9s %-14s %s\n' "$@"
}

# settle NAME JOB...: boots with the flash and card after the cut NAME. Prints a row with their state, and
# with the release and settings at the first and the last look. All firmware must then be new.
settle() {
    local left boots
    left=("$(state kernel)" "$(state app)" "$(state etc)")
    # shellcheck disable=SC2046 # two words each
    power_on $(printf -- '--job %s ' "${@:2}")
    [ $status -eq 0 ] || fail "the board ended with status $status"
    boots=$(sed -n "1s/.*kernel '\(.*\)' from flash/\1/p" output)
    mapfile -t found < <(sed -n 's/^found: //p' output)
    row "$1" "${left[@]}" "${boots:-recovery}" "${found[0]}" "${found[-1]}"
    [ "$(state kernel) $(state app) ${found[-1]% *}" = "new new new" ] || fail "some firmware is not new"
}
