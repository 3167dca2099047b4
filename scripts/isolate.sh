# Sourced: keeps commands away from this machine's network, mounts and processes.
# shellcheck shell=bash

# isolated COMMAND...: takes this shell's place and runs COMMAND in namespaces of its own, as root or as
# another user. Whatever ends this process ends everything in them.
isolated() {
    local user=()
    unshare --net true 2>/dev/null || user=(--map-root-user)
    exec unshare "${user[@]}" --net --mount --pid --mount-proc --fork --kill-child "$@"
}

# hold_network: keeps a second network namespace, that of process $holder, until this one ends.
hold_network() {
    unshare --net sleep infinity &
    holder=$!
    while [ /proc/$holder/ns/net -ef /proc/$$/ns/net ]; do sleep 0.02; done
}

# isolate_me "$@": starts the calling script again, isolated. Returns only in the isolated script.
isolate_me() {
    [ -n "${is_isolated:-}" ] || is_isolated=yes isolated "$0" "$@"
}
