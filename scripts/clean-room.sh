#!/bin/bash
# clean-room.sh [--release NAME] COMMAND...: runs COMMAND in a fresh clone of this checkout's HEAD, on
# a minimal Debian. A command that passes there passes on a bare machine. NAME is bookworm (default)
# or trixie, or sid for unstable. Needs root. The output and the exit status are COMMAND's own. /var/cache keeps a template
# of each release; each run gets its own copy.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/run-control.sh"
. "$top/scripts/install-packages.sh"
. "$top/scripts/private-apt.sh"
rooms=${XDG_CACHE_HOME:-/var/cache}/qve-clean-room

usage() {
    sed -n '2,5s/^# //p' "$0" >&2
    exit 2
}

fail() {
    echo "clean room: $*" >&2
    exit 1
}

# make_template: makes a minimal Debian that uses this machine's package sources. Keeps an existing
# one if it was made in the same way less than a month ago.
make_template() {
    local mirror access wanted new=$template.new
    mirror=$(debian_mirror)
    [ -n "$mirror" ] || fail "this machine's apt sources have no Debian mirror; set DEBIAN_MIRROR"
    access=$(apt-config dump | grep -E '^Acquire::(https?|Check-[A-Za-z-]+)[: ]') || true # most machines need none
    wanted=$(cat "$0" - <<<"$mirror $access" | sha256sum)
    [ -z "$(find "$template.made" -mtime -30 2>/dev/null)" ] || [ "$(cat "$template.made")" != "$wanted" ] || return 0

    install_packages room
    echo "clean room: making the template of $release" >&2
    rm -rf --one-file-system "$new" "$template.made"
    mmdebstrap --quiet --variant=apt --include=mount --aptopt="$access" "$release" "$new" \
        "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" ||
        fail "could not make $release from $mirror"
    echo "$access" >"$new/etc/apt/apt.conf.d/90machine"
    [[ $mirror != https:* ]] ||
        install -D -m 644 /etc/ssl/certs/ca-certificates.crt "$new/etc/ssl/certs/ca-certificates.crt"
    rm -rf --one-file-system "$template"
    mv "$new" "$template"
    echo "$wanted" >"$template.made"
}

# A room belongs to a run as long as the run holds the room's lock.
remove_left_rooms() {
    local left
    for left in "$rooms"/room.*; do
        [ ! -e "$left/lock" ] || flock --nonblock "$left/lock" rm -rf --one-file-system "$left" ||
            true # still in use
    done
}

make_room() {
    room=$(mktemp -d "$rooms/room.XXXXXX")
    on_exit rm -rf --one-file-system "$room"
    exec {room_lock}>"$room/lock"
    flock "$room_lock"
    cp -a "$template" "$room/root"
    cp /etc/resolv.conf /etc/hosts "$room/root/etc/"
    # The machine's settings for pip. Debian's own certificates would replace a file in their place.
    [ ! -e /etc/pip.conf ] || cp /etc/pip.conf "$room/root/etc/"
    local trusted=${PIP_CERT:-/etc/ssl/certs/ca-certificates.crt}
    [ ! -e "$trusted" ] || install -D -m 644 "$trusted" "$room/root/etc/ssl/machine.crt"
    git clone --quiet "$top" "$room/root/root/qve"
    git -C "$room/root/root/qve" checkout --quiet --detach "$(git -C "$top" rev-parse HEAD)"
}

# Not a chroot: a program in a chroot could not have mounts of its own.
enter_room() {
    # shellcheck disable=SC2016 # expanded in the room
    unshare --mount --pid --fork --kill-child --propagation private bash -c '
        set -e
        mount --bind "$0" "$0"
        mount -t proc proc "$0/proc"
        mount -t sysfs -o ro sysfs "$0/sys"
        mount -t devpts -o newinstance,ptmxmode=0666 devpts "$0/dev/pts"
        mount -t tmpfs tmpfs "$0/dev/shm"
        cd "$0"
        mkdir .machine
        pivot_root . .machine
        umount -l /.machine
        rmdir /.machine
        cd /root/qve
        exec "$@"' "$room/root" \
        env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
        TERM="${TERM:-dumb}" "${settings[@]}" "$@"
}

release=bookworm
while [[ ${1:-} == -* ]]; do
    case $1 in
    --release) [ $# -ge 2 ] || usage; release=$2; shift 2 ;;
    *) usage ;;
    esac
done
[ $# -gt 0 ] || usage
[[ " $supported_releases sid " == *" $release "* ]] || fail "no release '$release'; supported releases: $supported_releases"
[ "$(id -u)" -eq 0 ] || fail "only root can make a clean room"
mapfile -t settings < <(env | grep -iE '^((https?|no)_proxy|PIP_(EXTRA_)?INDEX_URL|PIP_DEFAULT_TIMEOUT)=')
[ -z "${PIP_CERT:-}" ] || settings+=(PIP_CERT=/etc/ssl/machine.crt)

template=$rooms/$release
on_exit true
wait_for_turn "$rooms"
remove_left_rooms
make_template
make_room
exec {turn}>&-
enter_room "$@"
