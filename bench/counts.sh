# Sourced: counts that are the same on an idle machine and on a busy one.
# shellcheck shell=bash

# system_calls COMMAND...: how many it makes from start to exit, its children's included.
system_calls() {
    local counts
    counts=$(mktemp)
    strace -f -qq -c -U calls,name -o "$counts" "$@" >/dev/null 2>&1 || true # 'found nothing' is 1
    awk '$2 == "total" { print $1; found = 1 } END { exit !found }' "$counts"
    rm "$counts"
}
