# Sourced: counts that do not depend on the machine's load.
# shellcheck shell=bash

# system_calls COMMAND...: prints its number of system calls from start to exit, including children.
system_calls() {
    local counts
    counts=$(mktemp)
    strace -f -qq -c -U calls,name -o "$counts" "$@" >/dev/null 2>&1 || true # 'found nothing' is 1
    awk '$2 == "total" { print $1; found = 1 } END { exit !found }' "$counts"
    rm "$counts"
}
