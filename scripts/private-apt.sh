# Sourced: Debian packages of another architecture, without touching the system's package state.
# shellcheck shell=bash

release=bookworm

# private_apt ARCHITECTURE DIR: makes a package state in DIR and fetches its lists, main only. Then
# apt-get and apt-cache use it with "${apt_options[@]}"; what is installed with -d lies in
# DIR/archives. Says so and returns 1 when this machine has no source for the release.
private_apt() {
    local architecture=$1 dir=$2 mirror
    # shellcheck disable=SC2016 # apt's own placeholders
    mirror=$(apt-get indextargets --format '$(CREATED_BY) $(CODENAME) $(COMPONENT) $(REPO_URI)' |
        awk -v r=$release '$1 == "Packages" && $2 == r && $3 == "main" { print $4; exit }')
    [ -n "$mirror" ] || {
        echo "no apt source for $release main on this machine" >&2
        return 1
    }
    mkdir -p "$dir/lists/partial" "$dir/archives/partial"
    : >"$dir/status"
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" \
        >"$dir/sources.list"
    apt_options=(-qq -oAPT::Architecture="$architecture" -oAPT::Architectures="$architecture"
        -oDir::Etc::sourcelist="$dir/sources.list" -oDir::Etc::sourceparts=-
        -oDir::State::lists="$dir/lists" -oDir::State::status="$dir/status"
        -oDir::Cache="$dir" -oAcquire::Languages=none -oAcquire::Retries=3
        -oDebug::NoLocking=1 -oAPT::Sandbox::User=root)
    # Its exit status says little; whether packages can then be fetched tells whether it worked.
    apt-get "${apt_options[@]}" update || true
}
