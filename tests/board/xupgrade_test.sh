#!/bin/bash
# xupgrade keeps the watchdog fed while it installs; without -b the board resets when nobody feeds
# it afterwards, with -b at once.
. "${BASH_SOURCE%/*}/common.sh"

make_package new 1 "$work/package"

# The time-out is cut to 4 seconds while it runs; the installation takes longer.
cat >"$work/short-timeout" <<'END'
echo server_port=9000 >/etc/tcp_server.conf
xupgrade -i &
tries=50 # it opens the watchdog after a second
until watchdog_timeout $! 4 || [ $((tries -= 1)) -eq 0 ]; do sleep 0.1; done
wait $!
echo "xupgrade: status $?"
sleep 60
END
# A package that is refused at once: 30 seconds after the end the board resets.
cat >"$work/full-timeout" <<'END'
grep server_port /etc/tcp_server.conf
: >/tmp/flash3
xupgrade
wait
sleep 60
END
cat >"$work/reboot" <<'END'
xupgrade -b -f
END
echo 'grep server_port /etc/tcp_server.conf' >"$work/look"

status=0
board --log-times --put "$work/package:/tmp/flash3" \
    --put "$top/build/arm-test/tests/board/programs/watchdog_timeout:/bin/watchdog_timeout" \
    --job "$work/short-timeout" --job "$work/full-timeout" --job "$work/reboot" --job "$work/look" \
    || status=$?
[ $status -eq 0 ] || fail "status $status"

# at LINE NTH: when the line appeared, in whole seconds.
at() {
    awk -v wanted="$1" -v nth="$2" '{ time = $1; sub(/^ *[0-9.]+ /, "")
        if ($0 == wanted && ++count == nth) { printf "%d", time; exit } }' "$work/timed"
}
took() { # FROM TO LEAST MOST WHAT
    local seconds=$(($2 - $1))
    { [ "$seconds" -ge "$3" ] && [ "$seconds" -le "$4" ]; } || fail "$5 took $seconds s"
}
cp "$work/output" "$work/timed"
sed -i 's/^ *[0-9.]* //' "$work/output"
has "boot loader: kernel 'old' from flash" "time-out set to 4: 0" "xupgrade: status 0" \
    "boot loader: kernel 'new' from flash" "server_port=9000" "Upgrade fail." \
    "boot loader: kernel 'new' from flash" "Upgrade complete." \
    "boot loader: kernel 'new' from flash" "server_port=1852"
has "The timeout was set to 30 seconds" "Upgrade complete."
boots="boot loader: kernel 'new' from flash"
took "$(at "time-out set to 4: 0" 1)" "$(at "Upgrade complete." 1)" 6 90 "the installation"
took "$(at "Upgrade complete." 1)" "$(at "$boots" 1)" 2 9 "the reset after a cut time-out"
took "$(at "Upgrade fail." 1)" "$(at "$boots" 2)" 27 45 "the reset after 30 seconds"
took "$(at "Upgrade complete." 2)" "$(at "$boots" 3)" 1 9 "the reboot that was asked for"
