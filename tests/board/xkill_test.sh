#!/bin/bash
# xkill on real processes.
. "${BASH_SOURCE%/*}/common.sh"

cat >"$work/job" <<'END'
ln -s sleep /bin/stub-one
ln -s sleep /bin/stub-two
/bin/stub-one 1000 & one=$!
/bin/stub-two 1000 & two=$!
ln -s sleep /bin/stub-deaf
sh -c 'trap "" TERM; exec /bin/stub-deaf 1000' & deaf=$!
sleep 1

seconds() { cut -d. -f1 /proc/uptime; }

echo "found: $(xkill alive /bin/stub-)"
echo "not found: $(xkill alive /bin/stubs)"
xkill /bin/stub-on
[ -d /proc/$one ] && grep -q sleep /proc/$one/comm 2>/dev/null && echo "one still runs"
echo "two: $(xkill alive /bin/stub-two)"

before=$(seconds)
xkill /bin/stub-deaf
waited=$(($(seconds) - before))
[ $waited -ge 9 ] && [ $waited -le 12 ] && echo "waited for the deaf one"
echo "deaf: $(xkill alive /bin/stub-deaf)"

before=$(seconds)
xkill SIGTERM /bin/stub-deaf
[ $(($(seconds) - before)) -le 2 ] && echo "no wait with a signal word"
xkill SIGKILL /bin/stub-deaf
wait $deaf
echo "deaf ended with $?"
echo "gone: $(xkill alive /bin/stub-deaf)"
xkill SIGKILL /bin/stub-
wait $two
echo "two ended with $?"
wait $one
echo "one ended with $?"
END
board --job "$work/job" || fail "status $?"
has "found: Alive /bin/stub-" "not found: " "two: Alive /bin/stub-two" \
    "waited for the deaf one" "deaf: Alive /bin/stub-deaf" \
    "no wait with a signal word" "deaf ended with 137" "gone: " "two ended with 137" \
    "one ended with 143"
has_not "one still runs"
