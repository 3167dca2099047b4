# Sourced by the two top scripts: installs the Debian packages that are missing.
# shellcheck shell=bash

# packages_of GROUP: what a group of steps needs.
packages_of() {
    case $1 in
    build) echo cmake ninja-build g++ g++-arm-linux-gnueabi ;;
    board) echo qemu-system-arm u-boot-tools mtd-utils device-tree-compiler cpio kmod ;;
    test) echo googletest qemu-user-static clang libclang-rt-dev clang-format clang-tidy cppcheck shellcheck mtools fdisk iproute2 ;;
    bench) echo toybox iputils-arping psmisc procps zlib1g-dev ;;
    package) echo dpkg-dev fakeroot mandoc bsdextrautils file librsvg2-bin ;;
    esac
}

# install_packages GROUP...: says nothing and needs no rights when all are there.
install_packages() {
    local missing=() group name
    for name in $(for group in "$@"; do packages_of "$group"; done); do
        dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed ||
            missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "These packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2
            return 1
        }
        as_root=(sudo)
    fi
    echo "installing ${missing[*]}"
    "${as_root[@]}" apt-get -qq update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
}
