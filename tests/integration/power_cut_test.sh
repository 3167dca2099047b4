#!/bin/bash
# power_cut_test.sh upgrade|safe-upgrade MOMENT...: cuts the power during an upgrade by the program alone
# or with the scripts of integration/. A moment is REGION:SECONDS, the time after the write of region 1
# to 3 began. Further moments, after commas, cut the resumed upgrade. Then the board boots from flash.
# After a cut of the program alone, the test runs the same upgrade again.
. "${BASH_SOURCE%/*}/power_cut.sh"

case $1 in
upgrade) command="upgrade /tmp/flash3 -v" jobs=(again look) ;;
safe-upgrade) command="safe-upgrade /tmp/flash3" jobs=(look) ;;
esac
echo "cp -r /mine/. /etc/ && $command" >first
{ cat look && echo "$command"; } >again

row "cut at" kernel app /etc boots "boots with" "in the end"
for moment in "${@:2}"; do
    make_flash flash old.{kernel,app,etc}
    make_card card
    job=first
    for cut in ${moment//,/ }; do
        power_on --cut "write [/dev/mtd/${cut/:/]:}" --job $job
        grep -q '^board: power cut' output || fail "no cut at $moment (status $status)"
        job=look
    done
    settle "$moment" "${jobs[@]}"
    # The program alone keeps the settings only while the old /etc is still readable.
    case "$1 ${found[0]}" in
    "safe-upgrade "* | "upgrade old kept") [ "${found[-1]}" = "new kept" ] || fail "settings lost" ;;
    esac
done
