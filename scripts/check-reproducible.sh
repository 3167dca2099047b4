#!/bin/bash
# Checks that the same sources give the same bytes in any folder and at any time. Makes the board's
# program and its package in two folders and compares them. SOURCE_DATE_EPOCH sets the time.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SOURCE_DATE_EPOCH=1700000000

build() {
    cmake --preset arm && cmake --build --preset arm && cd build/arm && cpack
}

for place in one "my work/it's"; do
    mkdir -p "$work/$place"
    tar --exclude=./build --exclude=./.git --exclude=./.cache -cf - . | tar -xmf - -C "$work/$place"
    ln -s "$PWD/.cache" "$work/$place/.cache"
    (cd "$work/$place" && build) >"$work/log" 2>&1 || { cat "$work/log" >&2 && exit 1; }
done
cd "$work"
for product in qve "qve_$(cat one/VERSION)_armel.deb"; do
    cmp "one/build/arm/$product" "my work/it's/build/arm/$product"
done
grep -q '2023.11.14-22:13+0000' one/build/arm/qve || {
    echo "the banner does not have the time of SOURCE_DATE_EPOCH" >&2
    exit 1
}
