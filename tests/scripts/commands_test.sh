#!/bin/bash
# Tests the project's commands in a folder with an awkward name: wrong usage, other distributions, and
# interruptions. With the argument 'board', interrupts the emulated board.
set -euo pipefail
top=$(cd "${BASH_SOURCE%/*}/../.." && pwd)
work=$(mktemp -d)
. "$top/scripts/run-control.sh"
. "$top/scripts/isolate.sh"
on_exit rm -rf "$work"
mkdir -p "$work/my work/it's, a:b" "$work/bin" "$work/tmp"
cd "$work/my work/it's, a:b"
ln -s "$top"/{demo,check,scripts,board,integration} .
PATH=$work/bin:$PATH

fail() {
    echo "FAILED: $*" >&2
    cat "$work/said" >&2
    exit 1
}

# stand_in COMMAND SCRIPT: replaces COMMAND with a script.
stand_in() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# says STATUS TEXT COMMAND...: checks the exit status and the output.
says() {
    local status=0
    ("${@:3}") >"$work/said" 2>&1 </dev/null || status=$?
    [ $status -eq "$1" ] || fail "'${*:3}' ends with $status instead of $1"
    grep -qF -- "$2" "$work/said" || fail "'${*:3}' does not say '$2'"
}

# ends_at TEXT COMMAND...: stops it after it prints TEXT. It must leave no process and no scratch folder.
ends_at() {
    local status=0 command
    (exec 8>"$work/held" && flock 8 && TMPDIR=$work/tmp exec "${@:2}") >"$work/said" 2>&1 </dev/null &
    command=$!
    until grep -q "$1" "$work/said"; do
        kill -0 $command || fail "ended before it said '$1'"
        sleep 0.1
    done
    kill -TERM $command
    wait $command || status=$?
    [ $status -eq 143 ] || fail "ended with $status"
    flock --nonblock "$work/held" true || fail "something still runs"
    [ -z "$(ls "$work/tmp")" ] || fail "left behind: $(ls "$work/tmp")"
}

if [ "${1:-}" = board ]; then
    ln -s "$top/.cache" .
    truncate -s 16M card
    ends_at ready board/run --sd card flash -- sh -c 'echo ready; exec sleep 1000'
    exit
fi

says 2 "usage: board/run" board/run --log-times --put
says 2 "usage: ./demo" ./demo downgrade
says 2 "usage: ./check" ./check --no-install everything
says 2 "clean-room.sh [--release" scripts/clean-room.sh --release

# The mirror is found without package lists, for any release, and is not another project's.
printf 'deb http://%s main\n' a.invalid/tools\ nodistro b.invalid/debian\ trixie >"$work/sources"
echo "Dir::Etc { sourcelist \"$work/sources\"; sourceparts \"-\"; }; Dir::State::lists \"$work/tmp\";" >"$work/apt"
says 0 http://b.invalid/debian env APT_CONFIG="$work/apt" bash -c '. scripts/private-apt.sh; debian_mirror'
rm -rf "$work/tmp/"*

# On another distribution, with no package installed. Its packages may have the same names.
stand_in dpkg-query 'exit 1'
stand_in apt-get "touch '$work/touched'"
printf 'ID=other\nPRETTY_NAME="Other 1"\nVERSION_CODENAME=trixie\n' >"$work/other"
says 1 "Other 1. This script installs packages only on Debian, releases: bookworm trixie." isolated \
    bash -c "mount --bind '$work/other' /etc/os-release && exec ./demo"
grep -qF -- --no-install "$work/said" || fail "it does not say how to go on"
[ ! -e "$work/touched" ] || fail "it called apt-get"

# One of the processes ignores SIGTERM, one has a session of its own.
stand_in apt-get 'trap "" TERM; echo fetching; setsid sleep 1000 & sleep 1000'
DEBIAN_MIRROR=http://b.invalid ends_at fetching scripts/musl-sysroot.sh
[ "$(ls .cache)" = lock ] || fail "left behind in the cache: $(ls .cache)"

exec 9>build/lock
flock 9
ends_at "waiting for another run that uses build" ./check
says 124 "waiting for another run" timeout 2 bash -c '. scripts/run-control.sh; wait_for_turn build'
