#!/bin/bash
# tev_arp.sh TEV_ARP MEASURE PROGRAM: the address check against arping -D, between the network namespaces
# of a board and of another station. Prints the lines of 'measure' and the system calls of both. Lines of a
# taken address begin with 'taken-', lines of a free one with 'free-'. 'poll-calls' are the system calls of
# the board's own PROGRAM for each poll. Unlike the host's, its C library asks the kernel for the time.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # for ip; other users than root need this
. "${BASH_SOURCE%/*}/../scripts/isolate.sh"
. "${BASH_SOURCE%/*}/counts.sh"
isolate_me "$@"
hold_network
ip link add board type veth peer name station netns $holder
ip link set board up
nsenter --net=/proc/$holder/ns/net sh -c 'ip address add 192.0.2.9/24 dev station; ip link set station up'
until ip link show board | grep -q 'state UP'; do sleep 0.02; done

# tev_arp can end early when a new second begins, so start right after that.
await_second() {
    while [ "${EPOCHREALTIME#*.}" -gt 50000 ]; do sleep 0.01; done
}

tev_arp=$1 measure=$2
taken=("$tev_arp" board 192.0.2.9 5000 --vs arping -D -w 5 -I board 192.0.2.9)
free=("$tev_arp" board 192.0.2.10 1000 --vs arping -D -w 1 -I board 192.0.2.10)
"$measure" 21 "${taken[@]}" | sed 's/^/taken-/'
"$measure" 5 "${free[@]}" | sed 's/^/free-/'
echo "taken-calls $(system_calls "${taken[@]:0:4}") $(system_calls "${taken[@]:5}")"
await_second
echo "free-calls $(system_calls "${free[@]:0:4}") $(system_calls "${free[@]:5}")"
await_second
qemu-arm-static -cpu arm926 -strace -0 tev_arp "$3" "${free[@]:1:3}" 2>&1 |
    awk '/ (poll|clock_gettime64)\(/ { ++calls } / poll\(/ { ++polls }
        END { printf "poll-calls %.1f\n", calls / polls }'
