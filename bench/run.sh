#!/bin/bash
# Measures the program against its peers and writes bench/RESULTS.md. Needs an idle machine. Takes
# ten minutes, most of it on the emulated board. With names of rows, prints these only.
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

# row WHAT PEER OURS THEIRS RATIO LOW HIGH GOAL WHY: prints one line of the data for table and plot.
# RATIO is empty if there is none; LOW and HIGH are its spread. GOAL is a ratio or empty.
row() {
    (IFS='|' && printf '%s\n' "$*")
}

# ratio A B [DIGITS]
ratio() {
    awk -v a="$1" -v b="$2" -v digits="${3:-2}" 'BEGIN { printf "%.*f", digits, a / b }'
}

# count WHAT PEER OURS THEIRS GOAL WHY [DIGITS [UNIT]]: a figure without a spread.
count() {
    local share
    share=$(ratio "$3" "$4" "${7:-2}")
    row "$1" "$2" "$3${8:-}" "$4${8:-}" "$share" "$share" "$share" "$5" "$6"
}

# compare WHAT PEER UNIT DIVISOR FIGURE OUTPUT GOAL WHY: makes a row from the output of 'measure'.
compare() {
    local a b c
    read -r _ a[{0..2}] b[{0..2}] c[{0..2}] < <(grep "^$5 " <<<"$6")
    row "$1" "$2" "$(spread "$4" "$3" "${a[@]}")" "$(spread "$4" "$3" "${b[@]}")" \
        "$(ratio "${c[0]}" 1)" "${c[1]}" "${c[2]}" "$7" "$8"
}

# spread DIVISOR UNIT MEDIAN MIN MAX
spread() {
    awk -v d="$1" -v unit="$2" -v m="$3" -v low="$4" -v high="$5" \
        'BEGIN { printf "%.4g%s (%.4g to %.4g)", m / d, unit, low / d, high / d }'
}

# instructions PROGRAM [ARGUMENT...]: prints how many it executes in user mode, under $emulator.
instructions() {
    "${emulator[@]}" -singlestep -d exec,nochain -D "$bench/trace" "$@" >/dev/null
    grep -c '^Trace' "$bench/trace"
}

rows_install() {
    local figures name a b
    figures=$(bench/install.sh)
    compare "install 8 MiB on NAND with a data sheet's delays" "\`flashcp -v\`" " s" 1 nand "$figures" \
        1.02 "the flash takes the time; calls of 512 bytes may cost 2 %"
    compare "install 8 MiB on emulated NOR, which takes no time" "\`flashcp -v\`" " s" 1 nor "$figures" \
        1 "as fast as the common tool; the row above decides"
    while read -r name a b; do
        case $name in
        calls) count "install: system calls" "\`flashcp -v\`" "$a" "$b" "" "no goal; the reason for the time on NOR" ;;
        read) count "install: bytes read" "\`flashcp -v\`" "$a" "$b" 1 "read the package twice and the flash once" ;;
        written) count "install: bytes written to flash" "\`flashcp -v\`" "$a" "$b" 1 "flash wears out" ;;
        memory) count "install: calls for memory (brk, mmap)" "\`flashcp -v\`" "$a" "$b" "" "0 by its own code: it must not fail half-way because memory is short" ;;
        peak) count "install: peak of resident memory" "\`flashcp -v\`" "$a" "$b" "" "< 256 kB: /tmp, which holds the package, needs the rest" 2 " kB" ;;
        esac
    done < <(sort -k 1,1r <<<"$figures")
}

rows_crc32() {
    local crc32=build/host/bench/bench_crc32 method empty full loop="a plain table loop"
    local faster="1.3 times as fast as the plain loop, by unrolling it"
    # 64 MiB, as 64 times one.
    compare "CRC-32 of 64 MiB on the host: CPU time" "$loop" " ms" 1000 cpu \
        "$("$measure" 11 $crc32 program 1048576 64 --vs $crc32 loop 1048576 64)" 0.77 "$faster"
    compare "CRC-32 of 64 MiB on the host: CPU time" zlib " ms" 1000 cpu \
        "$("$measure" 11 $crc32 program 1048576 64 --vs $crc32 zlib 1048576 64)" "" "no goal; zlib has more tables"
    local -A per_byte
    local where
    for where in host board; do
        local program=("$crc32")
        emulator=(qemu-x86_64-static)
        if [ $where = board ]; then
            emulator=(qemu-arm-static -cpu arm926)
            program=("$bench/crc32.arm")
        fi
        for method in program loop zlib; do
            empty=$(instructions "${program[@]}" $method 65536 0)
            full=$(instructions "${program[@]}" $method 65536 1)
            per_byte[$method]=$(ratio $((full - empty)) 65536)
        done
        count "CRC-32 on the ${where/board/board\'s CPU}: instructions a byte" "$loop" \
            "${per_byte[program]}" "${per_byte[loop]}" 0.77 "$faster"
        count "CRC-32 on the ${where/board/board\'s CPU}: instructions a byte" zlib \
            "${per_byte[program]}" "${per_byte[zlib]}" "" "no goal; zlib has more tables"
    done
}

rows_xkill() {
    local figures peer name
    figures=$(bench/xkill.sh "$host/lib/qve/xkill" "$measure")
    for peer in killall pkill; do
        name="\`${peer/pkill/pkill -f}\`"
        compare "\`xkill NAME\` without a hit, 2,000 processes: CPU time" "$name" " ms" 1000 $peer-cpu "$figures" \
            1 "two scans for the price of one"
        # shellcheck disable=SC2046 # two numbers
        count "\`xkill NAME\` without a hit, 2,000 processes: system calls" "$name" \
            $(sed -n "s/^$peer-calls //p" <<<"$figures") 1 "the reason for the CPU time"
    done
}

rows_tev_arp() {
    local figures peer="\`arping -D\`"
    figures=$(bench/tev_arp.sh "$host/lib/qve/tev_arp" "$measure" build/arm/qve)
    compare "\`tev_arp\`, taken address: start to exit" "$peer" " ms" 1000 taken-wall "$figures" \
        "" "no goal; the kernel's waits decide"
    compare "\`tev_arp\`, taken address: CPU time" "$peer" " ms" 1000 taken-cpu "$figures" 1 "the start of a boot waits for it"
    # shellcheck disable=SC2046 # two numbers
    count "\`tev_arp\`, taken address: system calls" "$peer" \
        $(sed -n "s/^taken-calls //p" <<<"$figures") 1 "the same"
    compare "\`tev_arp\`, free address, a second: CPU time" "$peer" " ms" 1000 free-cpu "$figures" \
        "" "no goal; 1,000 wake-ups a second cost this"
    # shellcheck disable=SC2046 # two numbers
    count "\`tev_arp\`, free address, a second: system calls" "$peer" \
        $(sed -n "s/^free-calls //p" <<<"$figures") "" "no goal; it polls 1,000 times a second"
    row "\`tev_arp\` on the board's CPU: system calls for each poll" "-" \
        "$(sed -n "s/^poll-calls //p" <<<"$figures")" "" "" "" "" "" "≤ 2: half of the four of the first version"
}

rows_start() {
    local figures light="as light as a common multi-call program"
    local applet=$host/lib/qve/test_led toybox="\`true\` of toybox"
    figures=$("$measure" 51 "$applet" --vs "$bench/true")
    compare "start to exit of an idle applet: page faults" "$toybox" "" 1 faults "$figures" 1 "$light"
    emulator=(qemu-x86_64-static)
    count "start to exit of an idle applet on the host: instructions" "$toybox" \
        "$(instructions "$applet")" "$(instructions -0 true "$bench/true")" 1 "$light"
    emulator=(qemu-arm-static -cpu arm926 -L "$armel")
    count "start to exit of an idle applet on the board's CPU: instructions" "$toybox" \
        "$(instructions -0 test_led build/arm/qve)" "$(instructions -0 true "$armel/bin/toybox")" 1 "$light" 4
}

rows_size() {
    local toybox
    toybox=$(stat -c %s "$armel/bin/toybox")
    count "size of the board's program, static, in bytes" "toybox for armel, dynamic" \
        "$(stat -c %s build/arm/qve)" "$toybox" "" "≤ 122,880: 120 KiB of the board's flash"
    count "size of the board's program, dynamic, in bytes" "toybox for armel, dynamic" \
        "$(stat -c %s "$bench/dynamic/qve.stripped")" "$toybox" "" "no goal; like against like"
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

# table: prints the rows on standard input as a table.
table() {
    cat <<'END'
| what | peer | this program | the peer | ratio | goal, and where it comes from |
|---|---|--:|--:|--:|---|
END
    awk -F'|' '{ printf "| %s | %s | %s | %s | %s | %s%s |\n", $1, $2, $3, $4, $5,
                        $8 == "" ? "" : "≤ " $8 ": ", $9 }'
}

report() {
    cat <<END
# Measured

$(date -u +%F), Debian $(cat /etc/debian_version), $(nproc) processors
($(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)), the board emulated.

Each row measures the program and its peer in turn, in the same run. Times are medians, with minimum and maximum
in parentheses. A ratio is this program's figure divided by its peer's: below 1 is better. The ratio of a time
is the median of the pairs. [notes.md](notes.md) gives the reasons.

![The ratios with their spread and their goals](ratios.svg)

$(table <"$data")

Sizes of the sections, in bytes:

$(sections)
END
}

all_rows=(install crc32 xkill tev_arp start size)
for name in "$@"; do
    [[ " ${all_rows[*]} " == *" $name "* ]] || {
        echo "usage: bench/run.sh [ROWS...], of: ${all_rows[*]}"
        [ "$name" = --help ] && exit || exit 2
    }
done
prepare
if [ $# -gt 0 ]; then
    for name in "$@"; do "rows_$name"; done | table
    exit
fi
data=$bench/data
for name in "${all_rows[@]}"; do "rows_$name"; done >"$data"
bench/plot.sh <"$data" >bench/ratios.svg
report >bench/RESULTS.md
cat bench/RESULTS.md
