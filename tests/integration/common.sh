# Sourced: a flash with old firmware, new firmware to install, and what flash holds.
# shellcheck shell=bash

set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$top/board/firmware.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work/root cmake --install "$top/build/arm" --prefix / >/dev/null

fail() {
    echo "FAILED: $*" >&2
    [ ! -f "$work/output" ] || cat "$work/output" >&2
    exit 1
}

# board [option...]: runs the board on $work/flash, output in $work/output; returns its status.
board() {
    "$top/board/run.sh" --install "$work/root" "$@" "$work/flash" >"$work/output" 2>&1
}

# region NAME [FLASH]: its bytes in flash.
region() {
    local start size
    read -r start size < <(partition "$1")
    tail -c +$((start + 1)) "${2:-$work/flash}" | head -c "$size" || true # head ends tail early
}

# holds NAME FILE: the region begins with the file and is erased behind it.
holds() {
    local size
    size=$(stat -c %s "$2")
    cmp <(region "$1" | head -c "$size") "$2" || fail "region $1 does not hold $2"
    [ "$(region "$1" | tail -c +$((size + 1)) | tr -d '\377' | wc -c)" -eq 0 ] ||
        fail "region $1 is not erased behind $2"
}

cd "$work"
make_release old
make_release new
make_flash flash old.{kernel,app,etc}
