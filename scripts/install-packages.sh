# Sourced: installs missing Debian packages.
# shellcheck shell=bash

# Debian's names. All packages have the same name in each release.
supported_releases="bookworm trixie"

# packages_of GROUP: prints the packages that a group of steps needs.
packages_of() {
    case $1 in
    build) echo cmake git ninja-build g++ g++-arm-linux-gnueabi googletest libssl-dev ;;
    board) echo qemu-system-arm u-boot-tools mtd-utils device-tree-compiler cpio kmod mtools fdisk python3 bison flex make xxd dpkg-dev ;;
    test) echo qemu-user-static clang libclang-rt-dev clang-format clang-tidy cppcheck shellcheck pyflakes3 pycodestyle zlib1g-dev jq iproute2 python3-pexpect python3-pytest python3-pytest-timeout python3-pytest-xdist ;;
    bench) echo wrk dosfstools e2fsprogs strace toybox iputils-arping psmisc procps zlib1g-dev ;;
    package) echo dpkg-dev fakeroot lintian mandoc bsdextrautils file librsvg2-bin ;;
    fleet) echo binutils busybox curl fdisk jq mtools openssl python3 python3-venv ;;
    hawkbit) echo default-jre-headless ;;
    room) echo mmdebstrap ;;
    esac
}

# missing_packages GROUP...: prints the packages that are not installed.
missing_packages() {
    local group name
    for name in $(for group in "$@"; do packages_of "$group"; done); do
        dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed || echo "$name"
    done
}

# os_release KEY: prints a value of this machine's /etc/os-release.
os_release() {
    (. /etc/os-release && echo "${!1:-}")
}

# install_packages GROUP...: prints nothing and needs no rights if nothing is missing.
install_packages() {
    local missing as_root=()
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0

    [[ $(os_release ID) == debian && " $supported_releases " == *" $(os_release VERSION_CODENAME) "* ]] || {
        echo "This machine runs $(os_release PRETTY_NAME)." \
            "This script installs packages only on Debian, releases: $supported_releases."
        echo "These are missing: ${missing[*]}"
        echo "Install them yourself, under this distribution's names, and use the option --no-install."
        return 1
    } >&2
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo)
        command -v sudo >/dev/null || {
            echo "These packages are missing, and installing them needs root or sudo: ${missing[*]}" >&2
            return 1
        }
    fi
    echo "installing ${missing[*]}"
    # First complete an installation that was interrupted.
    "${as_root[@]}" dpkg --configure --pending >/dev/null &&
        "${as_root[@]}" apt-get -qq -oDPkg::Lock::Timeout=600 update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive DEBCONF_NOWARNINGS=yes \
            apt-get -qq -oDPkg::Lock::Timeout=600 install -y --no-install-recommends "${missing[@]}" >/dev/null
}
