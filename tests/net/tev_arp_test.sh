#!/bin/bash
# tev_arp_test.sh TEV_ARP ARP_PEER: the address check on real packets, between the network namespace
# of a board and that of another station. The verdict is in no exit status: it shows in how long a
# run lasts.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # where ip is, also for those who are not root
. "${BASH_SOURCE%/*}/../../scripts/isolate.sh"
isolate_me "$@"
tev_arp=$1
peer=$2

readonly board=020000000001 station=020000000002 nobody=000000000000
readonly wanted=c0000209 other=c0000208 # 192.0.2.9, 192.0.2.8
readonly probe=ffffffffffff${board}08060001080006040001${board}00000000${nobody}$wanted

fail() {
    printf 'FAILED: %s\n' "$@" >&2
    exit 1
}

in_station() {
    nsenter --net=/proc/$holder/ns/net "$@"
}

# frame OPERATION SENDER-MAC SENDER-IP TARGET-MAC TARGET-IP [ETHERTYPE]
frame() {
    echo "ffffffffffff$station${6:-0806}000108000604000$1$2$3$4$5"
}

before=() # what the program is started through

# check NAME INTERFACE TIMEOUT [--flood MILLISECONDS] [FRAME...]: a run while the station sends
# FRAMEs after the first probe, once or for so long. Leaves $probes on the wire, other output in
# $said, the run's $time in milliseconds, the $most memory that it had resident, in kB, and its
# $descriptors.
check() {
    name=$1
    output=$(in_station "$peer" station "${@:4}" -- nsenter --net=/proc/$$/ns/net \
        "${before[@]}" "$tev_arp" "$2" 192.0.2.9 "$3" 2>&1)
    probes=$(grep -cx "$probe" <<<"$output" || true)
    said=$(grep -vx -e "$probe" -e 'exit 0 after .*' <<<"$output" || true)
    read -r time most descriptors < <(sed -En \
        's/^exit 0 after (.*) ms, (.*) kB, (.*) descriptors$/\1 \2 \3/p' <<<"$output") || true
}

# expect CONDITION [OUTPUT]: what must hold, and all that may be said, a line however often.
expect() {
    if [ "$(uniq <<<"$said")" != "${2:-}" ] || [ -z "$time" ] || ! (($1)); then
        fail "$name: not '$1'" "$output"
    fi
}

# link_up INTERFACE: the wire, both ends; what is sent before is lost
link_up() {
    ip link set "$1" up
    in_station ip link set station up
    until ip link show "$1" | grep -q 'state UP' &&
        in_station ip link show station | grep -q 'state UP'; do sleep 0.02; done
}

hold_network # the station's
ip link add board address 02:00:00:00:00:01 type veth \
    peer name station address 02:00:00:00:00:02 netns $holder
link_up board

# A conflict ends the long time early. A run of 1900 ms ends 900 ms or more after its start,
# wherever in a second that is.
check "one probe" board 0
expect "probes == 1 && time < 5000"

in_station ip address add 192.0.2.9/24 dev station
check "the station replies" board 10000
expect "probes >= 1 && time < 5000"
in_station ip address delete 192.0.2.9/24 dev station

check "a probe" board 10000 "$(frame 1 $station 00000000 $nobody $wanted)"
expect "probes >= 1 && time < 5000"
check "nothing of note" board 1900 \
    "$(frame 2 $board $wanted $station $other)" \
    "$(frame 2 $station $other $nobody $wanted)" \
    "$(frame 1 $station $other $nobody $other)" \
    "$(frame 1 $station $other $board $wanted)" \
    "$(frame 3 $station $wanted $nobody $wanted)" \
    "$(frame 2 $station $wanted $board 00000000 0800)"
expect "probes >= 2 && time >= 900"

# A flood of frames that are dropped: a run goes on under it beyond its time, and does not grow. A
# moment without a frame, which a busy machine has, would end it.
quiet=$most
for _ in {1..10}; do
    check "a flood of dropped frames" board 400 --flood 800 \
        "$(frame 3 $station $wanted $nobody $wanted)"
    [ -z "$said" ] || break
done
expect "probes >= 1 && time >= 800 && most - $quiet < 512 && $descriptors < 16" \
    "still running after the flood"

# Ten probes fit in a second that begins with the run; a busy machine loses some, but not each time.
# shellcheck disable=SC2016 # for the inner shell, which waits for the turn of a second
before=(bash -c 'sleep "$(printf 0.%06d $((999999 - 10#${EPOCHREALTIME#*[.,]})))"; exec "$@"' turn)
for _ in 1 2 3 4 5; do
    check "a second" board 1000
    expect "probes >= 1 && probes <= 10"
    [ "$probes" -lt 8 ] || break
done
expect "probes >= 5"
before=()

check "no such interface" nowhere 10000
expect "probes == 0 && time < 5000"
ip link set board down
check "an interface that is down" board 10000
expect "probes == 0 && time < 5000" "sendto: Network is down"
# The kernel binds to a name of 14 characters, but sends to one of 13 only.
ip link set board name board-eth-name
link_up board-eth-name
check "no probe gets out" board-eth-name 1900
expect "probes == 0 && time >= 900" "sendto: No such device"

status=0
said=$("$tev_arp" board 192.0.2.9 2>&1) || status=$?
[ "$status $said" = "255 tev_arp: bad option"$'\n'"Usage: tev_arp ifname IP" ] ||
    fail "two arguments: status $status, $said"
