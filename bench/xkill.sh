#!/bin/bash
# xkill.sh XKILL MEASURE: prints what 'measure' does of "xkill NAME" that finds nothing among 2,000
# processes, against pkill -f and against killall. In a process namespace of its own.
set -euo pipefail
. "${BASH_SOURCE%/*}/../scripts/isolate.sh"
isolate_me "$@"
for ((i = 0; i < 2000; ++i)); do
    sleep infinity &
done
# Other names, and a pattern that does not match itself: pkill -f would find the measurement.
"$2" 21 "$1" /bin/absent --vs pkill -f '[/]bin/missing'
"$2" 21 "$1" /bin/absent --vs killall missing
