#!/bin/bash
# Puts Debian's musl for armel and the kernel's headers into .cache/musl at the top of the project.
# musl is the small C library of the board's program. Keeps a complete one.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/run-control.sh"
. "$here/cache.sh"
. "$here/private-apt.sh"

fail() {
    echo "musl: $*" >&2
    exit 1
}

compiler=arm-linux-gnueabi-g++
command -v $compiler >/dev/null || fail "$compiler is missing; install the package g++-arm-linux-gnueabi"
version=$($compiler -dumpversion)

# Remade when these scripts change, or the compiler, whose C++ headers it uses.
sum=$(cat "$here"/{musl-sysroot,private-apt}.sh - <<<"$version" | sha256sum)
begin_cache "$(dirname "$here")/.cache/musl" "$sum"
echo "musl: downloading Debian's musl-dev and linux-libc-dev for armel"
private_apt armel "$work/apt" || fail "could not download the package lists"
(cd "$work/apt" && apt-get "${apt_options[@]}" download musl-dev linux-libc-dev) ||
    fail "could not download the packages"
for package in "$work"/apt/*.deb; do
    dpkg -x "$package" "$work/new"
done
rm -rf "$work/new/usr/share"
# The compiler's own C++ headers. Only the parts that need no library work.
ln -s "$(realpath "$($compiler -print-file-name=../include/c++/"$version")")" "$work/new/usr/include/c++"
chmod 755 "$work/new"
end_cache
