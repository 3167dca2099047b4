# Sourced: for what must not reach this machine's network, mounts and processes.
# shellcheck shell=bash

# isolated COMMAND...: runs it in namespaces of its own, with or without the rights of root.
isolated() {
    local user=()
    unshare --net true 2>/dev/null || user=(--map-root-user)
    unshare "${user[@]}" --net --mount --pid --mount-proc --fork --kill-child "$@"
}

# hold_network: starts what holds a second network namespace, of process $holder, to this one's end.
hold_network() {
    unshare --net sleep infinity &
    holder=$!
    while [ /proc/$holder/ns/net -ef /proc/$$/ns/net ]; do sleep 0.02; done
}

# isolate_me "$@": starts the calling script again, isolated, and returns there.
isolate_me() {
    [ -z "${is_isolated:-}" ] || return 0
    local status=0
    is_isolated=yes isolated "$0" "$@" || status=$?
    exit $status
}
