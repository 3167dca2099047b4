#!/bin/bash
# Builds the emulated board's image from Debian packages: boot loader, kernel, device tree, root file
# system. The result is .cache/board at the top of the project. Keeps a complete result.
set -euo pipefail

PATH=$PATH:/usr/sbin:/sbin # for depmod; other users than root need this
here=$(cd "$(dirname "$0")" && pwd)
caches=$(dirname "$here")/.cache
. "$here/../scripts/run-control.sh"
. "$here/../scripts/cache.sh"
. "$here/../scripts/private-apt.sh"
settings=$here/../integration/u-boot

# The board's userland. board/run adds the program itself at each boot.
userland=(dash coreutils mount util-linux mawk findutils psmisc procps kmod sed grep tar diffutils iproute2
    net-tools rsyslog strace time mtd-utils bsdutils dosfstools e2fsprogs libubootenv-tool)
modules=(spi_aspeed_smc spi-nor ofpart mtdblock jffs2 vfat nls_ascii nls_cp437 nls_iso8859-1
    sdhci-of-aspeed ext4 cuse mdio-aspeed realtek ftgmac100 ehci_platform usb_storage sd_mod
    nandsim) # the bench installs on it
# The partitions of the 16 MiB NOR flash: name, start, size. Linux may not write the boot loader. Two
# places in it have a name of their own: the environment and the count of failed starts.
partitions=("boot 0x0 0x100000 read-only" "kernel 0x100000 0x580000" "app 0x680000 0x800000"
    "etc 0xe80000 0x180000" "environment 0x40000 0x20000" "starts 0xf0000 0x10000")
# What the factory adds to the boot loader's environment, in the first 512 bytes.
factory=(ethaddr=02:51:56:01:02:03 serial_no=EM00000001 product_code=QV-EMULATED)

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
    (cd "$here" && find build-image.sh ../scripts/private-apt.sh ../integration/u-boot/fw_env.config \
        ../.cache/u-boot/fingerprint rootfs -type f -print0 | sort -z | xargs -0 sha256sum) |
        sha256sum | cut -d ' ' -f 1
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
    install -m 644 "$settings/fw_env.config" "$work/root/usr/share/board/"
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
    local tree=$work/new/board.dtb flash=/ahb/spi@1e620000/flash@0 i name start size flag node
    install -m 644 "$work"/kernel/usr/lib/linux-image-*/aspeed-ast2600-evb.dtb "$tree"
    fdtput -r "$tree" $flash/partitions
    fdtput -c "$tree" $flash/partitions
    fdtput -t s "$tree" $flash/partitions compatible fixed-partitions
    fdtput -t x "$tree" $flash/partitions '#address-cells' 1
    fdtput -t x "$tree" $flash/partitions '#size-cells' 1
    # Each new node becomes the first one. Add them backwards, so that the first partition is mtd0.
    for ((i = ${#partitions[@]} - 1; i >= 0; --i)); do
        read -r name start size flag <<<"${partitions[i]}"
        node=$flash/partitions/$name@${start#0x}
        fdtput -c "$tree" "$node"
        fdtput -t s "$tree" "$node" label "$name"
        fdtput -t x "$tree" "$node" reg "$start" "$size"
        [ -z "$flag" ] || fdtput "$tree" "$node" "$flag"
    done
    for node in /ahb/usb@1e6a1000 /ahb/apb/serial@1e78{3000,d000,e000,f000}; do
        fdtput -t s "$tree" "$node" status okay
    done
    printf '%s\n' "${partitions[@]:0:4}" | cut -d ' ' -f 1-3 >"$work/new/partitions"
}

check_kernel_size() {
    local size
    size=$(stat -c %s "$work/new/vmlinuz")
    [ $((size + 64)) -le $((0x580000)) ] ||
        fail "Debian's kernel ($size bytes) no longer fits its partition; enlarge it in $0"
}

# put FILE OFFSET: puts it into the boot partition.
put() {
    dd if="$1" of="$work/new/boot.img" bs=64K seek=$(($2 / 0x10000)) conv=notrunc status=none
}

# The boot loader's partition, and the recovery kernel that it takes from the card or the network.
make_boot_loader() {
    head -c 1M /dev/zero | tr '\0' '\377' >"$work/new/boot.img"
    printf '%s\n' "${factory[@]}" | cat - "$settings/environment.txt" >"$work/environment"
    mkenvimage -r -s 0x10000 -o "$work/environment.bin" "$work/environment"
    put "$caches/u-boot/spl.bin" 0
    put "$work/environment.bin" 0x40000
    put "$work/environment.bin" 0x50000
    put "$caches/u-boot/u-boot.img" 0x60000
    mkdir "$work/new/tftp"
    SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 -e 0x80008000 \
        -n recovery -d "$work/new/vmlinuz" "$work/new/tftp/recovery.img" >/dev/null
}

pack_root() {
    step "packing the root file system"
    (cd "$work/root" && find . -print0 | sort -z | cpio --quiet -0 -o -H newc -R 0:0) \
        >"$work/new/root.cpio"
    # The kernel finds a second archive only at a multiple of four bytes.
    truncate -s %4 "$work/new/root.cpio"
}

main() {
    on_exit true
    "$here/build-u-boot.sh"
    begin_cache "$caches/board" "$(fingerprint)"
    need fdtput device-tree-compiler
    need cpio cpio
    need depmod kmod
    download
    unpack
    add_modules
    make_device_tree
    check_kernel_size
    make_boot_loader
    pack_root
    end_cache
    step "ready, kernel $(cat "$cache/kernel-version")"
}

main
