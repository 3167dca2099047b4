# Sourced: a run waits for the one before it, and all that it has started ends with it.
# shellcheck shell=bash

# wait_for_turn FOLDER: holds FOLDER until this run and all that it has started are gone. Only one
# run at a time gets past here; closing $turn lets the next one in before that.
wait_for_turn() {
    mkdir -p "$1"
    exec {turn}>"$1/lock"
    flock --nonblock "$turn" && return
    echo "waiting for another run that uses ${1##*/} to end" >&2
    flock "$turn"
}

# on_exit COMMAND...: runs COMMAND at this script's end, when nothing that it has started runs any
# more. SIGTERM and SIGHUP end a script at once as it is, SIGINT when its foreground command ended.
on_exit() {
    # shellcheck disable=SC2064 # the command is the one of now
    trap "end_started; $(printf '%q ' "$@")" EXIT
    trap 'exit 130' INT
}

# end_started: SIGTERM for all that this script has started, SIGKILL for what is left 5 s later.
end_started() {
    local pids files
    mapfile -t pids < <(started_by $$)
    files=("${pids[@]/#//proc/}")
    kill -TERM "${pids[@]}" 2>/dev/null || true # most are gone, or go with another
    for _ in {1..50}; do
        grep -qs '^State:[[:space:]]*[^ZX]' "${files[@]/%//status}" || return 0
        sleep 0.1
    done
    kill -KILL "${pids[@]}" 2>/dev/null || true # they may have gone by now
}

# started_by PROCESS: the processes that it has started, and those that they have.
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
