# Sourced by the board tests: firmware to install and the words to compare.
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

# has TEXT...: lines that must be in the output, in this order.
has() {
    local line wanted=$1
    while IFS= read -r line; do
        if [ "$line" = "$wanted" ]; then
            shift
            [ $# -gt 0 ] || return 0
            wanted=$1
        fi
    done <"$work/output"
    fail "missing in the output: $wanted"
}

has_not() {
    ! grep -qF -- "$1" "$work/output" || fail "must not be in the output: $1"
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

# make_release NAME: kernel, app and etc of a firmware as $work/NAME.*
make_release() {
    make_kernel_image "$1" "$work/$1.kernel"
    make_app_image "$1" 300000 "$work/$1.app"
    make_etc_image "$1" "$work/$1.etc"
}

# make_package NAME LAYOUT OUT
make_package() {
    "$top/build/host/fwpack" create --layout "$2" --marker 3510 --kernel "$work/$1.kernel" \
        --second "$work/$1.app" --etc "$work/$1.etc" --output "$3"
}

make_release old
make_release new
make_flash "$work/flash" "$work"/old.{kernel,app,etc}
