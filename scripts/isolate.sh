# Sourced: keeps commands away from this machine's network, mounts and processes.
# shellcheck shell=bash

# isolated COMMAND...: runs it in namespaces of its own, as root or as another user.
isolated() {
    local user=()
    unshare --net true 2>/dev/null || user=(--map-root-user)
    unshare "${user[@]}" --net --mount --pid --mount-proc --fork --kill-child "$@"
}

# hold_network: keeps a second network namespace, that of process $holder, until this one ends.
hold_network() {
    unshare --net sleep infinity &
    holder=$!
    while [ /proc/$holder/ns/net -ef /proc/$$/ns/net ]; do sleep 0.02; done
}

# isolate_me "$@": starts the calling script again, isolated. Returns only in the isolated script.
isolate_me() {
    [ -z "${is_isolated:-}" ] || return 0
    local status=0
    is_isolated=yes isolated "$0" "$@" || status=$?
    exit $status
}
