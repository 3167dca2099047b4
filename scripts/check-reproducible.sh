#!/bin/bash
# Checks that the same sources give the same bytes in any folder and at any time. Makes the Debian packages
# for the board and for a PC in two folders and compares them. SOURCE_DATE_EPOCH sets the time.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SOURCE_DATE_EPOCH=1700000000

# build PRESET: the packages go to the current folder.
build() {
    cmake --preset "$1" && cmake --build --preset "$1" && cpack --config "build/$1/CPackConfig.cmake"
}

for place in one "my work/it's"; do
    mkdir -p "$work/$place"
    tar --exclude=./build --exclude=./.git --exclude=./.cache -cf - . | tar -xmf - -C "$work/$place"
    ln -s "$PWD/.cache" "$work/$place/.cache"
    (cd "$work/$place" && build arm && build package) >"$work/log" 2>&1 || { cat "$work/log" >&2 && exit 1; }
done
cd "$work"
(cd one && find build/arm/qve ./*.deb) | while read -r product; do
    cmp "one/$product" "my work/it's/$product"
done
grep -q '2023.11.14-22:13+0000' one/build/arm/qve || {
    echo "the banner does not have the time of SOURCE_DATE_EPOCH" >&2
    exit 1
}
