#!/bin/bash
# xkill.sh XKILL MEASURE: "xkill NAME" that finds nothing among 2,000 processes, against killall and
# pkill -f, in a process namespace of its own. Prints the lines of 'measure' and the system calls of both.
# Each line begins with the peer's name.
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
# Names that no process has, and a pattern that does not match itself, or pkill -f finds the measurement.
against killall missing
against pkill -f '[/]bin/missing'
