#!/bin/bash
# test_send_watchdog feeds the real watchdog, disarms it after SIGTERM and leaves it armed after
# SIGKILL; without -h it tells the system manager.
. "${BASH_SOURCE%/*}/common.sh"

cat >"$work/disarmed" <<'END'
udp_capture 4100 2 &
test_send_watchdog & sleep 1; kill $! && wait $!
test_send_watchdog other 1 & sleep 1; kill $! && wait $!
test_send_watchdog -h 1 & fed=$!
sleep 1
watchdog_timeout $fed 4
sleep 12
echo "fed for 12 seconds"
kill $fed && wait $fed
sleep 60
echo "up after a minute"
END
cat >"$work/armed" <<'END'
test_send_watchdog -h 1 & fed=$!
sleep 1
watchdog_timeout $fed 4
kill -9 $fed
sleep 60
echo "up all the same"
END
options=()
for program in udp_capture watchdog_timeout; do
    options+=(--put "$top/build/arm-test/tests/board/programs/$program:/bin/$program")
done
status=0
board "${options[@]}" --timeout 150 --job "$work/disarmed" --job "$work/armed" || status=$?
[ $status -eq 75 ] || fail "status $status in place of a reset by the last job"
packet="53 59 53 50 00 00 00 00 41 4c 49 56 01"
has "watchdog [0, 30]" "watchdog [0, 1]" "watchdog [1, 1]" "time-out set to 4: 0" \
    "fed for 12 seconds" "up after a minute" "watchdog [1, 1]" "time-out set to 4: 0"
has "$packet" "$packet"
has_not "up all the same"
