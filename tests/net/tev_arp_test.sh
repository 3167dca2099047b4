#!/bin/bash
# tev_arp_test.sh TEV_ARP: tests the address check on real packets. A board and another station have a
# network namespace each. The station's kernel answers.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # for ip; other users than root need this
. "${BASH_SOURCE%/*}/../../scripts/isolate.sh"
isolate_me "$@"
tev_arp=$1

# The question for 192.0.2.9, from a board without an address.
readonly probe=ffffffffffff0200000000010806000108000604000102000000000100000000000000000000c0000209

in_station() { nsenter --net=/proc/$holder/ns/net "$@"; }

# Prints received ARP frames as hexadecimal digits, up to a probe for 192.0.2.255.
# shellcheck disable=SC2016 # for Perl
listen='$| = 1;
    socket(my $wire, 17, 3, unpack("S", pack("n", 0x806))) or die $!; # AF_PACKET, SOCK_RAW
    print "ready\n";
    while (sysread($wire, $frame, 128)) {
        exit if $frame =~ /\xff$/;
        print unpack("H*", $frame), "\n";
    }'

# check INTERFACE MILLISECONDS: leaves the output in $said and the station's frames in $heard.
check() {
    local station
    exec {station}< <(in_station perl -e "$listen")
    read -r -u "$station"
    said=$("$tev_arp" "$1" 192.0.2.9 "$2" 2>&1)
    "$tev_arp" board 192.0.2.255 0
    heard=$(cat <&"$station")
}

# expect NAME CONDITION...
expect() {
    if [ -n "$said" ] || ! [ "${@:2}" ]; then
        printf '%s\n' "FAILED: $1" "$said" "$heard" >&2
        exit 1
    fi
}

hold_network # the station's
ip link add board address 02:00:00:00:00:01 type veth \
    peer name station address 02:00:00:00:00:02 netns $holder
ip link set board up
in_station ip link set station up
# Frames sent before the link is up are lost.
until ip link show board | grep -q 'state UP'; do sleep 0.02; done

check board 0
expect "one probe" "$heard" = "$probe"

# If a run starts with the second, it sends ten probes in it. A busy machine is late for some probes, but
# not in each try.
for _ in {1..30}; do
    sleep "$(printf 0.%06d $((999999 - 10#${EPOCHREALTIME#*[.,]})))"
    check board 1000
    [ "$(wc -l <<<"$heard")" -lt 10 ] || break
done
expect "a quiet second" "$heard" = "$(printf "$probe\n%.0s" {1..10})"

check nowhere 10000
expect "no interface" -z "$heard"

# The answer to the first probe ends the run. Without it, there would be a hundred probes.
in_station ip address add 192.0.2.9/24 dev station
check board 10000
expect "a conflict" "$(head -n 1 <<<"$heard") $(($(wc -l <<<"$heard") < 10))" = "$probe 1"
