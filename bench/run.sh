#!/bin/bash
# Measures the program against its peers and writes bench/RESULTS.md. Wants an idle machine; takes a
# quarter of an hour, most of it on the emulated board. With names of rows, prints these only.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/install-packages.sh
. scripts/private-apt.sh
bench=$PWD/build/bench
measure=$PWD/build/host/bench/bench_measure
host=$bench/host armel=$bench/armel
PATH=$PATH:/usr/sbin:/sbin

quietly() {
    "$@" >"$bench/log" 2>&1 || {
        cat "$bench/log" >&2
        exit 1
    }
}

prepare() {
    install_packages build board test bench
    mkdir -p "$bench"
    quietly cmake --preset host
    quietly cmake --build --preset host --target qve fwpack bench_crc32 bench_measure
    quietly cmake --preset arm
    quietly cmake --build --preset arm
    quietly cmake --preset arm-glibc -B "$bench/dynamic" -DQVE_STATIC=OFF
    quietly cmake --build "$bench/dynamic"
    arm-linux-gnueabi-strip -o "$bench/dynamic/qve.stripped" "$bench/dynamic/qve"
    quietly board/build-image.sh
    quietly env DESTDIR="$host" cmake --install build/host --prefix /
    ln -sf "$(command -v toybox)" "$bench/true"
    [ -e "$armel/bin/toybox" ] || fetch_armel
    quietly arm-linux-gnueabi-g++ -std=c++20 -Os -march=armv5te -marm -mfloat-abi=soft -static -I. \
        -I"$armel/usr/include" bench/crc32.cpp flash/crc32.cpp \
        "$armel/usr/lib/arm-linux-gnueabi/libz.a" -o "$bench/crc32.arm"
}

# The peers as the board could have them.
fetch_armel() {
    local package
    rm -rf "$bench/apt"
    quietly private_apt armel "$bench/apt"
    quietly apt-get "${apt_options[@]}" install -y -d --no-install-recommends toybox zlib1g-dev
    for package in "$bench"/apt/archives/*.deb; do
        dpkg -x "$package" "$armel"
    done
}

# row WHAT THIS PEER RATIO GOAL
row() {
    printf '| %s | %s | %s | %s | %s |\n' "$@"
}

# ratio A B [DIGITS]
ratio() {
    awk -v a="$1" -v b="$2" -v digits="${3:-2}" 'BEGIN { printf "%.*f", digits, a / b }'
}

# compare WHAT UNIT DIVISOR GOAL FIGURE OUTPUT: a row out of what 'measure' printed.
compare() {
    local a a_min a_max b b_min b_max
    read -r _ a a_min a_max b b_min b_max < <(grep "^$5 " <<<"$6")
    row "$1" "$(spread "$3" "$2" "$a" "$a_min" "$a_max")" "$(spread "$3" "$2" "$b" "$b_min" "$b_max")" \
        "$(ratio "$a" "$b")" "$4"
}

# spread DIVISOR UNIT MEDIAN MIN MAX
spread() {
    awk -v d="$1" -v unit="$2" -v m="$3" -v low="$4" -v high="$5" \
        'BEGIN { printf "%.4g %s (%.4g to %.4g)", m / d, unit, low / d, high / d }'
}

# instructions PROGRAM [ARGUMENT...]: how many it executes in user mode, under $emulator.
instructions() {
    "${emulator[@]}" -singlestep -d exec,nochain -D "$bench/trace" "$@" >/dev/null
    grep -c '^Trace' "$bench/trace"
}

rows_install() {
    local figures a b
    figures=$(bench/install.sh)
    compare "install 8 MiB: erase, write, compare, against \`flashcp -v\`" s 1 "≤ 1.0" seconds "$figures"
    while read -r name a b; do
        case $name in
        calls) row "the same: system calls" "$a" "$b" "$(ratio "$a" "$b")" "" ;;
        read) row "the same: bytes read" "$a" "$b" "$(ratio "$a" "$b")" "" ;;
        written) row "the same: bytes written to flash" "$a" "$b" "$(ratio "$a" "$b")" "" ;;
        memory) row "the same: calls for memory (brk, mmap)" "$a" "$b" "" "0 heap calls of its own" ;;
        peak) row "the same: peak of resident memory" "$a kB" "$b kB" "$(ratio "$a" "$b")" "< 256 kB" ;;
        esac
    done <<<"$figures"
}

rows_crc32() {
    local crc32=build/host/bench/bench_crc32 method empty full per_byte=()
    # 64 MiB, as 64 times one.
    compare "CRC-32 of 64 MiB on the host, against a plain table loop" ms 1000 "≤ 0.77" cpu \
        "$("$measure" 11 $crc32 program 1048576 64 --vs $crc32 loop 1048576 64)"
    compare "the same, against zlib" ms 1000 "" cpu \
        "$("$measure" 11 $crc32 program 1048576 64 --vs $crc32 zlib 1048576 64)"
    emulator=(qemu-arm-static -cpu arm926)
    for method in program loop zlib; do
        empty=$(instructions "$bench/crc32.arm" $method 65536 0)
        full=$(instructions "$bench/crc32.arm" $method 65536 1)
        per_byte+=("$(ratio $((full - empty)) 65536)")
    done
    row "CRC-32 on the board's CPU, instructions a byte, against the loop" "${per_byte[0]}" \
        "${per_byte[1]}" "$(ratio "${per_byte[0]}" "${per_byte[1]}")" "≤ 0.77"
    row "the same, against zlib" "${per_byte[0]}" "${per_byte[2]}" \
        "$(ratio "${per_byte[0]}" "${per_byte[2]}")" ""
}

rows_xkill() {
    local figures
    figures=$(bench/xkill.sh "$host/lib/qve/xkill" "$measure")
    compare "\`xkill NAME\` without a hit, 2,000 processes, CPU time, against \`pkill -f\`" ms 1000 "" cpu \
        "$(head -n 3 <<<"$figures")"
    compare "the same, against \`killall\`" ms 1000 "≤ 0.5 of the faster" cpu "$(tail -n 3 <<<"$figures")"
}

rows_tev_arp() {
    local figures
    figures=$(bench/tev_arp.sh "$host/lib/qve/tev_arp" "$measure")
    compare "\`tev_arp\`: time to the verdict on a conflict, against \`arping -D\`" ms 1000 "" wall \
        "$(head -n 3 <<<"$figures")"
    compare "the same: CPU time of a second's check of a free address" ms 1000 "" cpu \
        "$(tail -n 3 <<<"$figures")"
}

rows_start() {
    local a b figures applet=$host/lib/qve/test_led
    figures=$("$measure" 51 "$applet" --vs "$bench/true")
    compare "start to exit of an idle applet against \`true\` of toybox, host: page faults" "" 1 "≤ 1.0" \
        faults "$figures"
    emulator=(qemu-x86_64-static)
    a=$(instructions "$applet")
    b=$(instructions -0 true "$bench/true")
    row "the same: instructions" "$a" "$b" "$(ratio "$a" "$b")" "≤ 1.0"
    emulator=(qemu-arm-static -cpu arm926 -L "$armel")
    a=$(instructions -0 test_led build/arm/qve)
    b=$(instructions -0 true "$armel/bin/toybox")
    row "the same on the board's CPU: instructions" "$a" "$b" "$(ratio "$a" "$b" 4)" "≤ 1.0"
}

rows_size() {
    local program size toybox
    toybox=$(stat -c %s "$armel/bin/toybox")
    size=$(stat -c %s build/arm/qve)
    row "size of the board's program, static, against toybox for armel, dynamic" "$size" "$toybox" \
        "$(ratio "$size" "$toybox")" "≤ 122880"
    size=$(stat -c %s "$bench/dynamic/qve.stripped")
    row "size, dynamic against dynamic" "$size" "$toybox" "$(ratio "$size" "$toybox")" ""
}

sections() {
    printf '| section | static | dynamic | toybox |\n|---|--:|--:|--:|\n'
    local name
    for name in .text .rodata .data .bss .data.rel.ro .ARM.exidx .plt .dynsym .dynstr .rel.dyn; do
        printf '| %s' $name
        for program in build/arm/qve "$bench/dynamic/qve.stripped" "$armel/bin/toybox"; do
            arm-linux-gnueabi-size -A "$program" |
                awk -v name=$name '$1 == name { size = $2 } END { printf " | %d", size }'
        done
        printf ' |\n'
    done
}

report() {
    cat <<END
# Measured

$(date -u +%F), Debian $(cat /etc/debian_version), $(nproc) processors
($(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)), the board emulated.

The two of a row were measured in turn, in the same run: median (least to most). A ratio is this program's
figure over its peer's: below 1 is better.

| what | this program | peer | ratio | goal |
|---|--:|--:|--:|--:|
$rows

Sizes of the sections, in bytes:

$(sections)

$(cat bench/notes.md)
END
}

prepare
if [ $# -gt 0 ]; then
    for name in "$@"; do "rows_$name"; done
    exit
fi
rows=$(for name in install crc32 xkill tev_arp start size; do "rows_$name"; done)
report >bench/RESULTS.md
cat bench/RESULTS.md
