#!/bin/bash
# power_cut_test.sh REGION:SECONDS...: the power fails so long after an upgrade began with the region,
# 1 to 3; the board boots on what is in flash then, and the same upgrade is run again. A line per
# moment: what the cut left, what the board came up with, and whether the second try made it whole.
. "${BASH_SOURCE%/*}/common.sh"

make_package new 1 "$work/package"
cp "$work/flash" "$work/factory"

cat >"$work/upgrade" <<'END'
echo server_port=9000 >/etc/tcp_server.conf
upgrade /tmp/flash3 -v
END
cat >"$work/again" <<'END'
echo "found: $(cat /etc/release 2>/dev/null || echo none)" \
    "$(sed -n s/server_port=//p /etc/tcp_server.conf 2>/dev/null)"
upgrade /tmp/flash3 -v
END
cat >"$work/look" <<'END'
echo "finally: $(cat /etc/release) $(sed -n s/server_port=//p /etc/tcp_server.conf)"
END

# state REGION: whether it is as before the upgrade, as after it, or neither. Not for /etc, which
# writes to its blocks when it is mounted.
state() {
    if cmp -s <(region "$1" | head -c "$(stat -c %s "$work/new.$1")") "$work/new.$1"; then
        echo new
    elif cmp -s <(region "$1" "$work/factory") <(region "$1"); then
        echo old
    else
        echo partial
    fi
}

printf '%9s  %-8s %-8s %-10s %-16s %s\n' "cut after" kernel app boots "/etc and port" "second try"
for moment in "$@"; do
    cp "$work/factory" "$work/flash"
    status=0
    board --put "$work/package:/tmp/flash3" --cut "write [/dev/mtd/${moment/:/]:}" --timeout 120 \
        --job "$work/upgrade" || status=$?
    grep -q '^board: power cut' "$work/output" || fail "no cut at $moment (status $status)"
    left=("$(state kernel)" "$(state app)")
    status=0
    board --put "$work/package:/tmp/flash3" --timeout 120 --job "$work/again" --job "$work/look" ||
        status=$?
    [ $status -eq 0 ] || fail "the second try ended with status $status"
    boots=$(sed -n "1s/.*kernel '\(.*\)' from flash/\1/p" "$work/output")
    found=$(sed -n 's/^found: //p' "$work/output")
    finally=$(sed -n 's/^finally: //p' "$work/output")
    holds kernel "$work/new.kernel" && holds app "$work/new.app"
    [ "${finally% *}" = new ] || fail "after the second try /etc is '$finally'"
    # The settings are the user's as long as the old /etc was there to be read again.
    case $found in
    "old 9000") [ "$finally" = "new 9000" ] || fail "settings lost: '$finally'" ;;
    esac
    printf '%9s  %-8s %-8s %-10s %-16s %s\n' "$moment" "${left[@]}" "${boots:-recovery}" \
        "$found" "whole, port ${finally#* }"
done
