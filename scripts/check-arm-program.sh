#!/bin/bash
# Checks that the board's program is static, stripped, ARMv5TE, small, without heap, and complete when
# installed. The argument is its build folder.
set -eu
build=$1
program=$build/qve

fail() {
    echo "$program: $1" >&2
    exit 1
}

file_header=$(arm-linux-gnueabi-readelf -hlS "$program")
grep -q 'INTERP' <<<"$file_header" && fail "is not static"
grep -q '\.symtab' <<<"$file_header" && fail "is not stripped"
grep -q 'soft-float ABI' <<<"$file_header" || fail "is not soft-float"

# The linker records the highest CPU version of all objects.
arm-linux-gnueabi-readelf -A "$program" | grep -q 'Tag_CPU_arch: v5TE' || fail "is not ARMv5TE"

# With glibc the program is larger.
if grep -q '^CMAKE_TOOLCHAIN_FILE:.*-musleabi\.cmake$' "$build/CMakeCache.txt"; then
    size=$(stat -c %s "$program")
    [ "$size" -le $((120 * 1024)) ] || fail "has $size bytes, more than 120 KiB"
fi

find "$build/CMakeFiles" -name '*.cpp.o' | while read -r object; do
    if arm-linux-gnueabi-nm -u "$object" | grep -E ' (malloc|calloc|realloc|free|_Zn|_Zd|__cxa)'; then
        fail "$object uses the heap or the C++ runtime"
    fi
done

# There is one link per applet, and each starts its own applet.
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$build" --prefix / >/dev/null
links=$(find "$root/bin" -type l | wc -l)
[ "$links" -eq 24 ] || fail "is installed with $links links instead of 24"
emulator="qemu-arm-static -cpu arm926"
[ -z "$($emulator -0 test_led "$program")" ] || fail "does not run as test_led"
$emulator -0 other "$program" | grep -q "^QVE ver. 1\.0\.0 (" || fail "does not list its applets"
