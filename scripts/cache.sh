# Sourced after run-control.sh: folders that take long to make. Each stays as long as nothing that it is made
# from changes.
# shellcheck shell=bash

# begin_cache FOLDER SUM: ends the script if FOLDER is complete and was made from what SUM is a checksum of.
# Otherwise makes the folder $work/new, to be filled. One run at a time.
begin_cache() {
    cache=$1
    cache_sum=$2
    on_exit true
    wait_for_turn "${cache%/*}"
    [ "$(cat "$cache/fingerprint" 2>/dev/null)" != "$cache_sum" ] || exit 0
    rm -rf "$cache".?????? # left by a killed run
    work=$(mktemp -d "$cache.XXXXXX")
    on_exit rm -rf "$work"
    mkdir "$work/new"
}

# end_cache: puts $work/new in the place of the folder.
end_cache() {
    echo "$cache_sum" >"$work/new/fingerprint"
    rm -rf "$cache"
    mv "$work/new" "$cache"
}
