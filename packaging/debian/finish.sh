#!/bin/bash
# finish.sh DIR: adds what Debian's policy requires to each package below DIR: the copyright file, the
# changelog and the explained exceptions for lintian. Compresses the manual pages. No file contains the
# build time, so the same sources give the same bytes.
set -euo pipefail
umask 022
here=$(cd "$(dirname "$0")" && pwd)
top=$here/../..

# changelog PACKAGE: prints the released versions of CHANGELOG.md in Debian's form.
changelog() {
    local line date=''
    end_entry() { [ -z "$date" ] || printf '\n -- QVE firmware team <firmware@qve.invalid>  %s\n\n' "$date"; }
    while IFS= read -r line; do
        if [[ $line =~ ^'## ['([0-9.]+)'] - '([0-9-]+)$ ]]; then
            end_entry
            printf '%s (%s) stable; urgency=medium\n' "$1" "${BASH_REMATCH[1]}"
            date=$(LC_ALL=C date -u -R -d "${BASH_REMATCH[2]}")
        elif [ -n "$date" ]; then
            sed -E 's/^### (.*)/\n  [ \1 ]/; s/^- /  * /; s/^  ([^*[])/    \1/; /^$/d' <<<"$line"
        fi
    done <"$top/CHANGELOG.md"
    end_entry
}

# lintian treats an unknown exception as an error. So exceptions for newer versions are in a separate
# file, for Debian 13 and later.
overrides=(lintian-overrides)
(. /etc/os-release && [ "${VERSION_ID%%.*}" -lt 13 ]) || overrides+=(lintian-overrides-13)

for docs in "$1"/*/usr/share/doc/*; do
    package=${docs##*/}
    share=${docs%/doc/*}
    install -m 644 "$top/COPYRIGHT" "$docs/copyright"
    changelog "$package" | gzip -9n >"$docs/changelog.gz"
    mkdir -p "$share/lintian/overrides"
    for file in "${overrides[@]/#/$here/$package.}"; do
        [ ! -e "$file" ] || cat "$file"
    done >"$share/lintian/overrides/$package"
    find "$share/man" -type f -exec gzip -9n {} +
    find "$share/man" -type l | while read -r link; do
        ln -s "$(readlink "$link").gz" "$link.gz"
        rm "$link"
    done
done
