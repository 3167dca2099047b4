#!/bin/bash
# Makes the Debian packages out of the build folders of the host and of the board, the arguments;
# installs them in roots of their own, looks at what is there and at its manual pages, and removes
# them again.
set -euo pipefail
. "${BASH_SOURCE%/*}/isolate.sh"
PATH=$PATH:/usr/sbin:/sbin # where dpkg finds its helpers, also for those who are not root
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'FAILED: %s\n' "$@" >&2
    exit 1
}

# make_root NAME PACKAGE...: an empty root, in whose books these packages of this machine stand as
# installed, so that dependencies are looked at.
make_root() {
    root=$work/$1
    mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
    dpkg-query -W -f 'Package: ${Package}\nStatus: ${Status}\nArchitecture: ${Architecture}\n'`
        `'Multi-Arch: ${Multi-Arch}\nVersion: ${Version}\nMaintainer: none\nDescription: none\n\n' \
        "${@:2}" >"$root/var/lib/dpkg/status"
    printf '%s\n' "$(dpkg --print-architecture)" armel >"$root/var/lib/dpkg/arch"
}

in_root() {
    fakeroot dpkg --root="$root" --force-not-root "$@" >"$work/dpkg" 2>&1 || fail "$(cat "$work/dpkg")"
}

# The program's links are those of its own listing.
check_links() {
    diff <("${emulator[@]}" "$1/qve" | tail -n 1 | sed 's/, /\n/g' | sort) \
        <(find "$1" -lname qve -printf '%f\n' | sort) || fail "links other than the applets'"
}

# Every applet but those that do nothing has its page, and there are no other pages.
check_pages() {
    local pages=$root/usr/share/man page said
    diff <(sed -n '/no_op}/d; /"xbootenv"/d; s/^    {"\(.*\)", .*/\1.8/p' "$(dirname "$0")/../app/applet_table.cpp" |
        sort - <(echo qve.8)) <(find "$pages/man8" -name '*.8' -printf '%f\n' | sort) ||
        fail "pages other than the applets'"
    for page in "$pages"/man*/*; do
        # Where a page leads is not its own affair: it may be in another package.
        said=$(cd "${page%/*}"; mandoc -T lint -W style "${page##*/}" 2>/dev/null |
            sed '/STYLE: referenced manual not found/d') || true
        [ -z "$said" ] || fail "$said"
    done
}

# A page has the very words that the program prints.
check_usage() {
    local page command wanted said count=0
    for page in "$root"/usr/share/man/man8/*.8; do
        [ ! -L "$page" ] || continue
        while read -r -a command; do
            wanted=$(sed -n "/printed by: ${command[*]}\$/,/^\.Ed/p" "$page" |
                sed -e '1,2d' -e '/^\.Ed/d' -e 's/^\\&//' -e 's/\\&$//')
            # Isolated, should an applet do more than print.
            said=$(isolated "$1/${command[0]}" "${command[@]:1}" 2>&1 </dev/null || true)
            [ "$said" = "$wanted" ] || fail "${page##*/} has not what '${command[*]}' prints:" "$said"
            count=$((count + 1))
        done < <(sed -n 's/^\.\\" printed by: //p' "$page")
    done
    [ "$count" -eq 5 ] || fail "$count usage texts in place of 5"
}

# The options of fwpack's page are those of its help texts.
check_fwpack_options() {
    local command
    diff <(for command in "" create info check; do "$1" $command --help; done |
        grep -oE -- '--[a-z]+' | sort -u) \
        <(mandoc -T ascii "$root/usr/share/man/man1/fwpack.1" 2>/dev/null | col -b |
            grep -oE -- '--[a-z]+' | sort -u) || fail "options of fwpack(1) other than the help's"
}

look_at_host() {
    emulator=()
    check_links "$root/usr/lib/qve"
    check_pages
    check_usage "$root/usr/lib/qve"
    check_fwpack_options "$root/usr/bin/fwpack"
}

look_at_board() {
    emulator=(qemu-arm-static -cpu arm926)
    check_links "$root/bin"
}

# install_and_remove LOOK PACKAGE...: calls LOOK in between; nothing may stay behind.
install_and_remove() {
    local look=$1 package
    shift
    in_root --install "$@"
    $look
    for package in "$@"; do
        in_root --remove "$(dpkg-deb -f "$package" Package)"
    done
    [ -z "$(find "$root" -path "$root/var" -prune -o ! -type d -print)" ] ||
        fail "left behind after the removal:" "$(find "$root")"
}

for build in "$@"; do
    (cd "$build" && cpack -B "$work/packages") >"$work/cpack" 2>&1 || fail "$(cat "$work/cpack")"
done
make_root host libc6 libgcc-s1 libstdc++6
install_and_remove look_at_host "$work"/packages/*_"$(dpkg --print-architecture)".deb
make_root board
install_and_remove look_at_board "$work"/packages/*_armel.deb
