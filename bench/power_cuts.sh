#!/bin/bash
# power_cuts.sh [COUNT]: cuts the power at COUNT moments (40) of one safe-upgrade, evenly spread from the
# first write to flash to the last. The upgrade runs once. At each moment the script stops the emulator
# and copies flash and card, which are then as after a power cut. Then it boots every copy. Each moment
# gets a line in build/power-cuts/results. Another call continues this file.
. "${BASH_SOURCE%/*}/../tests/integration/power_cut.sh"
# shellcheck source=SCRIPTDIR/../scripts/install-packages.sh disable=SC2154
. "$top/scripts/install-packages.sh"

dir=$top/build/power-cuts
readonly interval=0.1 # seconds from copy to copy; not all copies are used

# copy NAME: copies flash and card between two instructions of the board.
copy() {
    local emulator
    emulator=$(fuser flash 2>/dev/null) || return 0 # no emulator runs between two boots
    # shellcheck disable=SC2086 # the number stands between blanks
    kill -STOP $emulator
    mkdir "$1" && cp --sparse=always flash card "$1"
    # shellcheck disable=SC2086
    kill -CONT $emulator
}

# Makes copies 1, 2, ... from the first write until the settings are back.
record_upgrade() {
    local n=0
    rm -rf "$dir" && mkdir -p "$dir"
    make_flash flash old.{kernel,app,etc}
    make_card card
    echo "cp -r /mine/. /etc/ && safe-upgrade /tmp/flash3" >first
    : >output
    power_on --job first &
    until grep -q 'write \[/dev/mtd/1\]' output; do sleep 0.1; done
    until grep -q 'Upgrade complete' output; do
        copy "$dir/$((n += 1))"
        sleep $interval
    done
    wait
    cp {old,new}.* package "$dir"
    row "cut at" kernel app /etc boots "boots with" "in the end" >"$dir/results"
}

install_packages bench
[ -e "$dir/results" ] || record_upgrade
cp "$dir"/{old,new}.* "$dir/package" .
copies=$(find "$dir" -mindepth 1 -type d | wc -l)
count=${1:-40}
[ "$copies" -ge "$count" ] || fail "only $copies copies; remove $dir and try again"
# Large steps first, so that the moments of an interrupted run are spread out too.
for step in 8 4 2 1; do
    for ((i = 0; i < count; i += step)); do
        n=$((1 + i * (copies - 1) / (count - 1)))
        ! grep -q "^$n of " "$dir/results" || continue
        cp "$dir/$n"/{flash,card} .
        settle "$n of $copies" look | tee -a "$dir/results"
    done
done
awk 'NR > 1 { ++n; kept += / new kept$/ } END { print kept " of " n " boards: all new, all settings kept"; exit kept < n }' \
    "$dir/results"
