#!/bin/sh
# version.sh: prints the version of this tree. It is the one in VERSION; between releases it also counts the
# commits since VERSION changed and names the last, as in 1.1.0+git4.1a2b3c4. Without git it is plain.
# version.sh --time: prints the time of the last commit, in seconds since 1970; without git that of the release.
set -eu
cd "$(dirname "$0")/.."
version=$(cat VERSION)
is_git=
if [ -e .git ]; then
    if command -v git >/dev/null; then
        is_git=yes
    else
        echo "version.sh: git is missing, so every commit has the version of the release, $version" >&2
    fi
fi

if [ "${1:-}" = --time ]; then
    if [ -n "$is_git" ]; then
        git log -1 --format=%ct
    else
        date -u -d "$(sed -n "s/^## \[$version\] - //p" CHANGELOG.md)" +%s
    fi
    exit
fi
if [ -n "$is_git" ]; then
    release=$(git log -1 --format=%H -- VERSION)
    count=$(git rev-list --count "$release..HEAD")
    [ "$count" -eq 0 ] || version=$version+git$count.$(git rev-parse --short=7 HEAD)
fi
echo "$version"
