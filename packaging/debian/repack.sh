#!/bin/bash
# repack.sh PACKAGE-FILE...: makes each package again with Debian's own tool. CPack gives the archive's members
# modes that depend on the umask, and counts the program's size once for each link to it.
set -euo pipefail
umask 022
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for file in "$@"; do
    dpkg-deb --raw-extract "$file" "$work/root"
    # Like Debian's tools: one KiB for each folder and link, and the rest of the last KiB of each file.
    size=$(find "$work/root" -path "$work/root/DEBIAN" -prune -o -printf '%y %s\n' |
        awk '{ sum += $1 == "f" ? int(($2 + 1023) / 1024) : 1 } END { print sum }')
    sed -i "s/^Installed-Size:.*/Installed-Size: $size/" "$work/root/DEBIAN/control"
    # No file is newer than the newest entry of the changelog, as in Debian's own packages.
    gzip -dc "$work"/root/usr/share/doc/*/changelog.gz >"$work/changelog"
    SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(dpkg-parsechangelog -l "$work/changelog" -S Timestamp)} \
        dpkg-deb --root-owner-group --build "$work/root" "$file"
    rm -rf "$work/root"
done
