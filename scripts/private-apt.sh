# Sourced: Debian packages of another architecture, without touching the system's package state.
# shellcheck shell=bash

# The board's parts always come from this release, whatever release this machine runs.
release=bookworm

# debian_mirror: prints the Debian mirror in this machine's apt sources, of any release, or the
# environment's DEBIAN_MIRROR for a machine without such a source. Needs no package lists.
debian_mirror() {
    if [ -n "${DEBIAN_MIRROR:-}" ]; then
        echo "$DEBIAN_MIRROR"
        return
    fi
    local release="(bookworm|trixie|forky|oldstable|stable|testing|sid|unstable)(-updates|-backports)?"
    apt-get --print-uris update | sed -nE "s,^'(.*)/dists/$release/main/.*/Packages.*,\1,p" | sed -n 1p
}

# private_apt ARCHITECTURE DIR: makes a package state in DIR and downloads its lists, main only. Then
# apt-get and apt-cache use it with "${apt_options[@]}"; 'install -d' puts packages into DIR/archives.
# With the architecture 'source', the list is that of the source packages.
# Prints a message and returns 1 if no mirror is known.
private_apt() {
    local architecture=$1 dir=$2 type=deb mirror
    [ "$architecture" != source ] || type=deb-src architecture=$(dpkg --print-architecture)
    mirror=$(debian_mirror)
    [ -n "$mirror" ] || {
        echo "this machine's apt sources have no Debian mirror; set DEBIAN_MIRROR" >&2
        return 1
    }
    mkdir -p "$dir/lists/partial" "$dir/archives/partial"
    : >"$dir/status"
    echo "$type [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" \
        >"$dir/sources.list"
    apt_options=(-qq -oAPT::Architecture="$architecture" -oAPT::Architectures="$architecture"
        -oDir::Etc::sourcelist="$dir/sources.list" -oDir::Etc::sourceparts=-
        -oDir::State::lists="$dir/lists" -oDir::State::status="$dir/status"
        -oDir::Cache="$dir" -oAcquire::Languages=none -oAcquire::Retries=3
        -oDebug::NoLocking=1 -oAPT::Sandbox::User=root)
    # The exit status says little. A failure shows when packages are downloaded.
    apt-get "${apt_options[@]}" update || true
}
