#!/bin/bash
# finish.sh VERSION DIR: adds what Debian's policy requires to each package below DIR: the copyright file,
# the changelog and the explained exceptions for lintian. Compresses the manual pages. No file contains the
# build time, so the same sources give the same bytes.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
top=$here/../..
version=$1 # Debian's

# begin_entry PACKAGE VERSION DATE
begin_entry() {
    printf '%s (%s) stable; urgency=medium\n' "$1" "$2"
    date=$(LC_ALL=C date -u -R -d "$3")
}

end_entry() {
    [ -z "$date" ] || printf '\n -- QVE firmware team <firmware@qve.invalid>  %s\n\n' "$date"
}

# changelog PACKAGE: prints CHANGELOG.md in Debian's form. The newest entry has this package's version: that of the
# release, or between releases one of its own, with what CHANGELOG.md lists as unreleased so far.
changelog() {
    local line name date='' release=${version%%+*} is_newest=yes
    if [[ $version == *+git* ]]; then
        begin_entry "$1" "$version" "@$("$top/scripts/version.sh" --time)"
        printf '\n  * Snapshot after release %s.\n' "$release"
    fi
    while IFS= read -r line; do
        if [[ $line =~ ^'## ['([0-9][^]]*)'] - '([0-9-]+)$ ]]; then
            end_entry
            name=${BASH_REMATCH[1]/-rc/\~rc}
            if [ -n "$is_newest" ]; then
                [ "$name" = "$release" ] || { echo "CHANGELOG.md has no entry for version $release" >&2 && exit 1; }
                [[ $version == *+git* ]] || name=$version
                is_newest=
            fi
            begin_entry "$1" "$name" "${BASH_REMATCH[2]}"
        elif [ -n "$date" ] && [[ $line != '## '* ]]; then
            sed -E 's/^### (.*)/\n  [ \1 ]/; s/^- /  * /; s/^  ([^*[])/    \1/; /^$/d' <<<"$line"
        fi
    done < <(sed -n '/^## /,$p' "$top/CHANGELOG.md")
    end_entry
}

# lintian treats an unknown exception as an error. So exceptions for newer versions are in a separate
# file, for Debian 13 and later.
overrides=(lintian-overrides)
(. /etc/os-release && [ "${VERSION_ID%%.*}" -lt 13 ]) || overrides+=(lintian-overrides-13)

for docs in "$2"/*/usr/share/doc/*; do
    package=${docs##*/}
    share=${docs%/doc/*}
    install -m 644 "$top/COPYRIGHT" "$docs/copyright"
    changelog "$package" | gzip -9n >"$docs/changelog.gz"
    # The package does not have all documents that its documents link to.
    { grep -oh ']([^):]*)' "$docs"/*.md || true; } | sort -u | while read -r link; do
        target=${link#](}
        target=${target%)}
        [ -e "$docs/${target%%#*}" ] || sed -i "s|$link|]|g" "$docs"/*.md
    done
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
