#!/bin/bash
# Builds the emulated board's image from Debian packages: kernel, device tree, root file system. The
# result is .cache/board at the top of the project. Keeps a complete result.
set -euo pipefail

PATH=$PATH:/usr/sbin:/sbin # for depmod; other users than root need this
here=$(cd "$(dirname "$0")" && pwd)
cache=$(dirname "$here")/.cache/board
. "$here/../scripts/run-control.sh"
. "$here/../scripts/private-apt.sh"

# The board's userland. board/run.sh adds the program itself at each boot.
userland=(dash coreutils mount util-linux mawk findutils psmisc procps kmod sed grep tar diffutils iproute2
    net-tools rsyslog strace time mtd-utils bsdutils dosfstools e2fsprogs)
modules=(spi_aspeed_smc spi-nor ofpart mtdblock jffs2 vfat nls_ascii nls_cp437 nls_iso8859-1
    sdhci-of-aspeed ext4 cuse mdio-aspeed realtek ftgmac100 ehci_platform usb_storage sd_mod
    nandsim) # the bench installs on it
# The partitions of the 16 MiB NOR flash: name, start, size.
partitions=("boot 0x0 0x80000" "kernel 0x80000 0x580000" "app 0x600000 0x800000"
    "etc 0xe00000 0x200000")

fail() {
    echo "board image: $*" >&2
    exit 1
}

need() {
    command -v "$1" >/dev/null || fail "$1 is missing; install the package $2"
}

step() {
    printf 'board image: %s\n' "$*"
}

# The image is remade when anything that goes into it changes.
fingerprint() {
    (cd "$here" && find build-image.sh ../scripts/private-apt.sh rootfs -type f -print0 | sort -z |
        xargs -0 sha256sum) | sha256sum | cut -d ' ' -f 1
}

download() {
    step "downloading Debian packages for armhf"
    private_apt armhf "$work/apt" || fail "could not download the package lists"
    kernel_package=$(apt-cache "${apt_options[@]}" depends linux-image-armmp |
        sed -n 's/.*Depends: \(linux-image-6[^ ]*\)/\1/p' | head -n 1)
    [ -n "$kernel_package" ] || fail "the package lists have no kernel"
    (cd "$work/apt" && apt-get "${apt_options[@]}" download "$kernel_package") ||
        fail "could not download $kernel_package"
    apt-get "${apt_options[@]}" install -y -d --no-install-recommends "${userland[@]}" >/dev/null ||
        fail "could not download the userland"
}

unpack() {
    step "unpacking"
    mkdir "$work/root" "$work/kernel"
    dpkg -x "$work"/apt/linux-image-*.deb "$work/kernel"
    local package
    for package in "$work"/apt/archives/*.deb; do
        dpkg -x "$package" "$work/root"
    done
    rm -rf "$work"/root/usr/share "$work"/root/usr/lib/arm-linux-gnueabihf/gconv
    ln -sf dash "$work/root/bin/sh"
    ln -sf mawk "$work/root/usr/bin/awk"
    # The job's shell has its own name because an upgrade from the console kills every /bin/sh.
    ln -sf dash "$work/root/bin/job-shell"
    mkdir -p "$work"/root/{dev,proc,sys,tmp,run,mnt/sd,mnt/usb,job}
    cp -a "$here/rootfs/." "$work/root/"
}

add_modules() {
    local version file
    version=$(basename "$work"/kernel/lib/modules/*)
    echo "$version" >"$work/new/kernel-version"
    depmod -b "$work/kernel" "$version"
    local from=$work/kernel/lib/modules/$version to=$work/root/lib/modules/$version
    mkdir -p "$to"
    cp "$from"/modules.{order,builtin,builtin.modinfo} "$to/"
    modprobe -d "$work/kernel" -S "$version" -a -D "${modules[@]}" |
        sed -n 's/^insmod \(.*\.ko\) .*/\1/p' | sort -u | while read -r file; do
        install -D -m 644 "$file" "$work/root/lib/modules/${file#"$work/kernel/lib/modules/"}"
    done
    depmod -b "$work/root" "$version"
    install -m 644 "$work/kernel/boot/vmlinuz-$version" "$work/new/vmlinuz"
}

# The vendor's device tree with our partitions and all serial lines.
make_device_tree() {
    local tree=$work/new/board.dtb flash=/ahb/spi@1e620000/flash@0 i name start size node
    install -m 644 "$work"/kernel/usr/lib/linux-image-*/aspeed-ast2600-evb.dtb "$tree"
    fdtput -r "$tree" $flash/partitions
    fdtput -c "$tree" $flash/partitions
    fdtput -t s "$tree" $flash/partitions compatible fixed-partitions
    fdtput -t x "$tree" $flash/partitions '#address-cells' 1
    fdtput -t x "$tree" $flash/partitions '#size-cells' 1
    # Each new node becomes the first one. Add them backwards, so that the first partition is mtd0.
    for ((i = ${#partitions[@]} - 1; i >= 0; --i)); do
        read -r name start size <<<"${partitions[i]}"
        node=$flash/partitions/$name@${start#0x}
        fdtput -c "$tree" "$node"
        fdtput -t s "$tree" "$node" label "$name"
        fdtput -t x "$tree" "$node" reg "$start" "$size"
    done
    for node in /ahb/usb@1e6a1000 /ahb/apb/serial@1e78{3000,d000,e000,f000}; do
        fdtput -t s "$tree" "$node" status okay
    done
    printf '%s\n' "${partitions[@]}" >"$work/new/partitions"
}

check_kernel_size() {
    local size
    size=$(stat -c %s "$work/new/vmlinuz")
    [ $((size + 64)) -le $((0x580000)) ] ||
        fail "Debian's kernel ($size bytes) no longer fits its partition; enlarge it in $0"
}

pack_root() {
    step "packing the root file system"
    (cd "$work/root" && find . -print0 | sort -z | cpio --quiet -0 -o -H newc -R 0:0) \
        >"$work/new/root.cpio"
    # The kernel finds a second archive only at a multiple of four bytes.
    truncate -s %4 "$work/new/root.cpio"
}

main() {
    local wanted
    wanted=$(fingerprint)
    on_exit true
    wait_for_turn "${cache%/*}"
    [ "$(cat "$cache/fingerprint" 2>/dev/null)" != "$wanted" ] || exit 0
    need fdtput device-tree-compiler
    need cpio cpio
    need depmod kmod

    rm -rf "$cache".?????? # left by a killed run
    work=$(mktemp -d "$cache.XXXXXX")
    on_exit rm -rf "$work"
    mkdir "$work/new"
    download
    unpack
    add_modules
    make_device_tree
    check_kernel_size
    pack_root
    echo "$wanted" >"$work/new/fingerprint"
    rm -rf "$cache"
    mv "$work/new" "$cache"
    step "ready, kernel $(cat "$cache/kernel-version")"
}

main
