#!/bin/bash
# power_cut_test.sh upgrade|safe-upgrade MOMENT...: the power fails during an upgrade by the program
# alone, or with the scripts of integration/. A moment is REGION:SECONDS, so long after the writing of
# region 1 to 3 began; those behind commas cut what resumes it. Then the board boots on what is in
# flash; after the program alone the same upgrade is run once more.
. "${BASH_SOURCE%/*}/power_cut.sh"

case $1 in
upgrade) command="upgrade /tmp/flash3 -v" jobs=(again look) ;;
safe-upgrade) command="safe-upgrade /tmp/flash3" jobs=(look) ;;
esac
echo "cp -r /mine/. /etc/ && $command" >first
{ cat look && echo "$command"; } >again

row "cut at" kernel app /etc boots "comes up with" "in the end"
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
    # The program alone keeps the settings as long as the old /etc is there to be read again.
    case "$1 ${found[0]}" in
    "safe-upgrade "* | "upgrade old kept") [ "${found[-1]}" = "new kept" ] || fail "settings lost" ;;
    esac
done
