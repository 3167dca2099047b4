#!/bin/bash
# Makes the Debian packages from the build folders for a PC and for the board, the arguments. Checks
# them against Debian's policy, installs each in a root of its own, checks the files and the manual
# pages there, and removes it again.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/isolate.sh"
PATH=$PATH:/usr/sbin:/sbin # dpkg's helpers; other users than root need this
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'FAILED: %s\n' "$@" >&2
    exit 1
}

# make_root NAME PACKAGE-FILE...: makes an empty root. Its package database lists the packages'
# dependencies as installed if this machine has them, so dpkg checks dependencies.
make_root() {
    local file names=()
    root=$work/$1
    for file in "${@:2}"; do
        mapfile -t -O ${#names[@]} names < <(dpkg-deb -f "$file" Depends | awk -v RS=, 'NF { print $1 }')
    done
    mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
    : >"$root/var/lib/dpkg/status"
    [ ${#names[@]} -eq 0 ] ||
        dpkg-query -W -f 'Package: ${Package}\nStatus: ${Status}\nArchitecture: ${Architecture}\n'`
            `'Multi-Arch: ${Multi-Arch}\nVersion: ${Version}\nMaintainer: none\nDescription: none\n\n' \
            "${names[@]}" >"$root/var/lib/dpkg/status"
    printf '%s\n' "$(dpkg --print-architecture)" armel >"$root/var/lib/dpkg/arch"
}

in_root() {
    fakeroot dpkg --root="$root" --force-not-root "$@" >"$work/dpkg" 2>&1 || fail "$(cat "$work/dpkg")"
}

# The links match the program's own listing.
check_links() {
    diff <("${emulator[@]}" "$1/qve" | tail -n 1 | sed 's/, /\n/g' | sort) \
        <(find "$1" -lname qve -printf '%f\n' | sort) || fail "links other than the applets'"
}

# Every applet and the program have a page, and there are no other pages.
check_pages() {
    local page said
    diff <(sed -n 's/^    {"\(.*\)", .*/\1.8/p' "$top/app/applet_table.cpp" | sort - <(echo qve.8)) \
        <(find "$root/usr/share/man/man8" -name '*.8.gz' -exec basename -s .gz {} + | sort) ||
        fail "pages other than the applets'"
    for page in "$top"/docs/man/*; do
        # A page may refer to a page in another package.
        said=$(cd "${page%/*}"; mandoc -T lint -W style "${page##*/}" 2>/dev/null |
            sed '/STYLE: referenced manual not found/d') || true
        [ -z "$said" ] || fail "$said"
    done
}

# A page has exactly the text that the program prints.
check_usage() {
    local page command wanted said count=0
    for page in "$top"/docs/man/*.8; do
        [ ! -L "$page" ] || continue
        while read -r -a command; do
            wanted=$(sed -n "/printed by: ${command[*]}\$/,/^\.Ed/p" "$page" |
                sed -e '1,2d' -e '/^\.Ed/d' -e 's/^\\&//' -e 's/\\&$//')
            # Isolated, in case an applet does more than print.
            said=$(isolated "$1/${command[0]}" "${command[@]:1}" 2>&1 </dev/null) || true
            [ "$said" = "$wanted" ] || fail "${page##*/} does not have the text that '${command[*]}' prints:" "$said"
            count=$((count + 1))
        done < <(sed -n 's/^\.\\" printed by: //p' "$page")
    done
    [ "$count" -eq 5 ] || fail "$count usage texts instead of 5"
}

# fwpack's help and its page have the same commands and options. Bash's completion finds them in the help.
check_fwpack_options() {
    local commands=() command options
    mapfile -t commands < <("$1" help | sed -n 's/^  fwpack \([a-z-]*\) .*/\1/p')
    . "$top/tools/completion/fwpack.bash"
    [ "$(completed "$1" '')" = "$(printf '%s\n' "${commands[@]}")" ] || fail "commands that bash completes"
    for command in "${commands[@]/#help/}"; do
        [ -n "$command" ] || continue
        options=$("$1" help "$command" | sed -n 's/^  -\(.\), --\([a-z-]*\).*/\1 \2/p')
        diff <(grep -v '^h help$' <<<"$options" | sort) \
            <(sed -n "/^\.Ss $command\$/,/^\.S[sh] /s/^\.It Fl \(.\) , -\([a-z-]*\).*/\1 \2/p" "$top/docs/man/fwpack.1" | sort) ||
            fail "fwpack(1) on $command"
        diff <(awk '{ print "--" $2 }' <<<"$options") <(completed "$1" "$command" --) ||
            fail "bash's completion of $command"
    done
}

# completed WORD...: prints bash's completions of the last word.
completed() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _fwpack
    printf '%s\n' "${COMPREPLY[@]}"
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

# install_and_remove NAME LOOK PACKAGE-FILE...: calls LOOK in between. The removal must leave nothing.
install_and_remove() {
    local name=$1 look=$2 file
    shift 2
    make_root "$name" "$@"
    in_root --install "$@"
    $look
    for file in "$@"; do
        in_root --remove "$(dpkg-deb -f "$file" Package)"
    done
    [ -z "$(find "$root" -path "$root/var" -prune -o ! -type d -print)" ] ||
        fail "left behind after the removal:" "$(find "$root")"
}

# make_packages UMASK FOLDER [OPTION...]: makes the packages of all build folders, with CPack's options.
make_packages() {
    local build
    for build in "${builds[@]}"; do
        (umask "$1" && cd "$build" && cpack -B "$work/$2" "${@:3}") >"$work/cpack" 2>&1 || fail "$(cat "$work/cpack")"
    done
}

# The newest entry of the changelog is this version's.
check_version() {
    dpkg-deb --fsys-tarfile "$1" | tar -xO --wildcards '*/changelog.gz' | gzip -d >"$work/changelog"
    [ "$(dpkg-parsechangelog -l "$work/changelog" -S Version)" = "$(dpkg-deb -f "$1" Version)" ] ||
        fail "${1##*/}: the changelog begins with another version"
}

builds=("$@")
make_packages 077 packages
make_packages 002 again
for file in "$work"/packages/*.deb; do
    cmp "$file" "$work/again/${file##*/}" || fail "${file##*/} depends on the umask"
    check_version "$file"
    said=$(lintian --allow-root --display-info "$file") || true
    [ -z "$said" ] || fail "lintian on ${file##*/}:" "$said"
done
make_packages 077 archives -G TGZ
for file in "$work"/archives/*.tar.gz; do
    ! tar -tvzf "$file" | grep -Ev '^(l|[d-]rw.r-.r-.)' || fail "${file##*/}: not everybody can read these"
done
install_and_remove host look_at_host "$work"/packages/*_"$(dpkg --print-architecture)".deb
install_and_remove board look_at_board "$work"/packages/*_armel.deb
