#!/bin/bash
# xkill.sh XKILL MEASURE: "xkill NAME" that finds nothing among 2,000 processes, against killall and
# pkill -f. Prints what 'measure' does and the system calls of both, each line with the peer's name
# before it. In a process namespace of its own.
set -euo pipefail
. "${BASH_SOURCE%/*}/../scripts/isolate.sh"
. "${BASH_SOURCE%/*}/counts.sh"
isolate_me "$@"
for ((i = 0; i < 2000; ++i)); do
    sleep infinity &
done

against() {
    "$measure" 21 "$xkill" /bin/absent --vs "$@" | sed "s/^/$1-/"
    echo "$1-calls $(system_calls "$xkill" /bin/absent) $(system_calls "$@")"
}

xkill=$1 measure=$2
# Other names, and a pattern that does not match itself: pkill -f would find the measurement.
against killall missing
against pkill -f '[/]bin/missing'
