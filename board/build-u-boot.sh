#!/bin/bash
# Builds the emulated board's boot loader: U-Boot from Debian's source package, with the files of
# integration/u-boot. The result is .cache/u-boot at the top of the project: spl.bin and u-boot.img.
# Keeps a complete result.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
settings=$here/../integration/u-boot
. "$here/../scripts/run-control.sh"
. "$here/../scripts/cache.sh"
. "$here/../scripts/private-apt.sh"

fail() {
    echo "boot loader: $*" >&2
    exit 1
}

# quietly COMMAND...: shows the command's output only if it fails.
quietly() {
    "$@" >"$work/log" 2>&1 || {
        tail -n 30 "$work/log" >&2
        fail "failed: $*"
    }
}

# configure: the fragment may name only settings that U-Boot has. Any other would vanish unseen.
configure() {
    local line
    quietly make evb-ast2600_defconfig
    quietly scripts/kconfig/merge_config.sh -m .config "$settings/u-boot.config"
    quietly make olddefconfig
    grep '^CONFIG' "$settings/u-boot.config" | while read -r line; do
        grep -qxF "$line" .config || fail "U-Boot does not take the setting $line"
    done
}

sum=$(cat "$0" "$here/u-boot.patch" "$settings"/{u-boot.config,environment.txt} | sha256sum | cut -d ' ' -f 1)
begin_cache "$(dirname "$here")/.cache/u-boot" "$sum"
echo "boot loader: building Debian's U-Boot"
private_apt source "$work/apt" || fail "could not download the package lists"
(cd "$work" && quietly apt-get "${apt_options[@]}" source --download-only u-boot)
quietly dpkg-source --no-check -x "$work"/u-boot_*.dsc "$work/source" # apt has checked the signature

cd "$work/source"
quietly patch -p1 -i "$here/u-boot.patch"
cp "$settings/environment.txt" .
export CROSS_COMPILE=arm-linux-gnueabi- SOURCE_DATE_EPOCH=1700000000
configure
quietly make "-j$(nproc)" u-boot.img spl/u-boot-spl.bin
[ "$(stat -c %s u-boot.img)" -le $((0x90000)) ] || fail "it does not fit between 0x60000 and 0xf0000 of flash"
cp u-boot.img "$work/new/"
cp spl/u-boot-spl.bin "$work/new/spl.bin"
end_cache
