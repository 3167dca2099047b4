#!/bin/bash
# tev_arp.sh TEV_ARP MEASURE: prints what 'measure' does of the address check against arping -D, between
# the network namespaces of a board and of another station: of a taken address, then a free one.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # where ip is, also for those who are not root
. "${BASH_SOURCE%/*}/../scripts/isolate.sh"
isolate_me "$@"
hold_network
ip link add board type veth peer name station netns $holder
ip link set board up
nsenter --net=/proc/$holder/ns/net sh -c 'ip address add 192.0.2.9/24 dev station; ip link set station up'
until ip link show board | grep -q 'state UP'; do sleep 0.02; done
"$2" 21 "$1" board 192.0.2.9 5000 --vs arping -D -w 5 -I board 192.0.2.9
"$2" 5 "$1" board 192.0.2.10 1000 --vs arping -D -w 1 -I board 192.0.2.10
