# Sourced: makes firmware for the emulated board from real parts.
# shellcheck shell=bash

PATH=$PATH:/usr/sbin:/sbin # for mkfs.jffs2; other users than root need this
board_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
board_cache=$(dirname "$board_dir")/.cache/board

# partition NAME: prints its start and size in flash, in bytes.
partition() {
    local start size
    read -r start size < <(awk -v name="$1" '$1 == name { print $2, $3 }' "$board_cache/partitions")
    echo $((start)) $((size))
}

# make_kernel_image NAME OUT: makes a boot loader header and the Debian kernel.
make_kernel_image() {
    SOURCE_DATE_EPOCH=1700000000 mkimage -A arm -O linux -T kernel -C none -a 0x80008000 \
        -e 0x80008000 -n "$1" -d "$board_cache/vmlinuz" "$2" >/dev/null
}

# make_etc_image RELEASE OUT: makes the /etc of a firmware, a file system as large as its partition.
# Each erase block begins with a node.
make_etc_image() {
    local tree size
    tree=$(mktemp -d)
    read -r _ size < <(partition etc)
    mkdir -p "$tree/network" "$tree/lighttpd"
    echo "$1" >"$tree/release"
    printf 'DHCP=1\nIPADDR=192.168.0.100\n' >"$tree/network/network.conf"
    printf 'ESSID=\n' >"$tree/network/wireless.conf"
    printf 'hostname=camera\n' >"$tree/system.conf"
    printf 'server=none\n' >"$tree/serverinfo.conf"
    printf 'cam_model=VM01\n' >"$tree/cam_model.conf"
    printf 'server_port=1852\n' >"$tree/tcp_server.conf"
    printf 'server.port = 80\n' >"$tree/lighttpd/lighttpd.conf"
    printf 'stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\n' >"$tree/stream.conf"
    printf 'video_type=0\n' >"$tree/videodecoder.conf"
    : >"$tree/killList"
    : >"$tree/termList"
    mkfs.jffs2 -r "$tree" -e 0x10000 -l --squash --pad="$size" -o "$2"
    rm -rf "$tree"
}

# make_app_image NAME SIZE OUT: makes contents for the second partition. All lines differ.
make_app_image() {
    seq -f "$1 %.0f" 1 1000000 | head -c "$2" >"$3" || true # head closes the pipe early
}

# make_flash OUT KERNEL APP ETC: makes the flash of a new board, its boot loader included.
make_flash() {
    "$board_dir/../build/host/fwpack" flash-image --table "$board_cache/partitions" --boot "$board_cache/boot.img" --kernel "$2" --second "$3" \
        --etc "$4" --output "$1" --force
}

# make_release NAME: makes the three parts of a firmware: NAME.kernel, NAME.app and NAME.etc.
make_release() {
    make_kernel_image "$1" "$1.kernel"
    make_app_image "$1" 300000 "$1.app"
    "$board_dir/../integration/second-checksum" add "$1.app"
    make_etc_image "$1" "$1.etc"
}

# make_package NAME LAYOUT OUT [OPTION...]: makes a package of the parts, with more options of fwpack.
make_package() {
    "$board_dir/../build/host/fwpack" create --layout "$2" --marker 3510 --kernel "$1.kernel" \
        --second "$1.app" --etc "$1.etc" --output "$3" --force "${@:4}"
}

# install_program DIR: installs the board's program into a root for it.
install_program() {
    DESTDIR=$1 cmake --install "$board_dir/../build/arm" --prefix / >/dev/null
}

# make_card OUT: makes an empty SD card with vfat, like a new card.
make_card() {
    rm -f "$1"
    truncate -s 64M "$1"
    echo 'start=2048, type=c' | sfdisk -q "$1"
    mformat -F -i "$1@@1M" ::
}
