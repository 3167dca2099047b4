#!/bin/bash
# Downloads the update engine for the emulated board: Debian's SWUpdate and curl for armhf, with the
# libraries that the board's image does not have. board/run --install puts the result,
# .cache/engine/root, onto the board. Keeps a complete result.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/../scripts/run-control.sh"
. "$here/../scripts/cache.sh"
. "$here/../scripts/private-apt.sh"

programs=(usr/bin/swupdate usr/bin/curl)

# needed FILE...: prints the shared libraries that the files need, directly or through others.
needed() {
    local -A known=()
    local file name
    while [ $# -gt 0 ]; do
        file=$1
        shift
        for name in $(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
            [ -z "${known[$name]:-}" ] || continue
            known[$name]=yes
            file=$(find lib usr/lib -name "$name" -print -quit)
            echo "$file"
            set -- "$@" "$file"
        done
    done
}

sum=$(cat "$0" "$here/../.cache/board/fingerprint" | sha256sum | cut -d ' ' -f 1)
begin_cache "$(dirname "$here")/.cache/engine" "$sum"
echo "update engine: downloading Debian packages for armhf"
private_apt armhf "$work/apt"
# usr-is-merged replaces a package that depends on Perl.
apt-get "${apt_options[@]}" install -y -d --no-install-recommends swupdate curl usr-is-merged >/dev/null
mkdir "$work/all" "$work/new/root"
for package in "$work"/apt/archives/*.deb; do
    dpkg -x "$package" "$work/all"
done
cpio --quiet -t <"$here/../.cache/board/root.cpio" >"$work/on-board"
cd "$work/all"
needed "${programs[@]}" | while read -r library; do
    grep -q "/${library##*/}$" "$work/on-board" || echo "$library"
done >"$work/libraries"
# Under the names that the programs look for. In the packages these are links.
xargs -a "$work/libraries" cp -L --parents -t "$work/new/root"
cp --parents "${programs[@]}" "$work/new/root"
end_cache
echo "update engine: ready, $(du -sh "$cache/root" | cut -f 1)"
