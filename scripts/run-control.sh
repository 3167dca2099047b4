# Sourced: a run waits for the run before it. At its end, it stops everything that it started.
# shellcheck shell=bash

# wait_for_turn FOLDER: locks FOLDER until this run and everything that it started have ended. Only
# one run at a time gets past here. Closing $turn lets the next run in earlier.
wait_for_turn() {
    mkdir -p "$1"
    exec {turn}>"$1/lock"
    flock --nonblock "$turn" && return
    echo "waiting for another run that uses ${1##*/}" >&2
    flock "$turn"
}

# on_exit COMMAND...: at this script's end, stops everything that it started and then runs COMMAND.
# SIGTERM and SIGHUP end a script at once, SIGINT after its foreground command ends.
on_exit() {
    # shellcheck disable=SC2064 # expand the command now
    trap "end_started; $(printf '%q ' "$@")" EXIT
    trap 'exit 130' INT
}

# end_started: sends SIGTERM to everything that this script started, and SIGKILL to the rest 5 s later.
end_started() {
    local pids files
    mapfile -t pids < <(started_by $$)
    files=("${pids[@]/#//proc/}")
    kill -TERM "${pids[@]}" 2>/dev/null || true # most have ended, or end with another
    for _ in {1..50}; do
        grep -qs '^State:[[:space:]]*[^ZX]' "${files[@]/%//status}" || return 0
        sleep 0.1
    done
    kill -KILL "${pids[@]}" 2>/dev/null || true # they may have ended by now
}

# started_by PROCESS: prints its children and all their descendants.
started_by() {
    cat /proc/[0-9]*/stat 2>/dev/null | awk -v first="$1" '
        { id = $1; sub(/.*\) /, ""); parent[id] = $2 }
        END {
            mine[first]
            do {
                found = 0
                for (id in parent)
                    if (!(id in mine) && parent[id] in mine) {
                        mine[id]
                        found = 1
                        print id
                    }
            } while (found)
        }'
}
