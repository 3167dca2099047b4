#!/bin/bash
# Checks the documents: each relative link leads to an existing file, and to a heading in it. Each
# picture renders, in light and in dark colours.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
faults=0

fault() {
    echo "FAILED: $*" >&2
    faults=$((faults + 1))
}

files() {
    find . \( -name build -o -name '.?*' \) -prune -o -name "$1" -print
}

# headings FILE: prints the headings' names for links.
headings() {
    sed -n 's/^#\+ //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

check_links() {
    local document link target
    while IFS=: read -r document link; do
        target=$(dirname "$document")/${link%%#*}
        [[ $link != '#'* ]] || target=$document
        if [ ! -e "$target" ]; then
            fault "$document: no file '$link'"
        elif [[ $link == *'#'* ]] && ! headings "$target" | grep -qxF -- "${link#*#}"; then
            fault "$document: no heading '$link'"
        fi
    done < <(files '*.md' | xargs grep -oHE '\]\([^)]+\)|src(set)?="[^"]+"' |
        sed -E 's/:(\]\(|src(set)?=")/:/; s/[)"]$//' | grep -v ':https\?:')
}

# dark FILE: prints the picture with its dark colours.
dark() {
    sed '/@media (prefers-color-scheme: dark) {$/,/^ *}$/{/@media/d; /^ *}$/d}' "$1"
}

check_pictures() {
    local picture
    while read -r picture; do
        dark "$picture" >"$work/dark.svg"
        { rsvg-convert -o "$work/light" "$picture" && rsvg-convert -o "$work/dark" "$work/dark.svg"; } ||
            fault "$picture: cannot be drawn"
        ! cmp -s "$work/light" "$work/dark" || fault "$picture: has no dark colours"
    done < <(files '*.svg')
}

# shellcheck disable=SC2016 # the quotes are the table's
# The table of settings has exactly what the program saves.
check_settings() {
    diff <(sed -n 's:.*cp -dpR /etc/\(.*\) /tmp/.*:\1 the whole file:p
            s:.*{"/etc/\([^"]*\)", "\([^"]*\)"}.*:\1 the number \2:p' flash/settings.cpp | sort) \
        <(sed -n 's/^| `\([^`]*\)` | the \(whole file\|number `[^`]*`\).*/\1 the \2/p' docs/settings.md |
            tr -d '`' | sort) || fault "docs/settings.md and flash/settings.cpp differ"
}

check_links
check_settings
check_pictures
[ "$faults" -eq 0 ]
