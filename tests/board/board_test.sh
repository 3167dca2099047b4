#!/bin/bash
# board_test.sh FILE [--update]: runs the commands in FILE on the emulated board and compares the whole
# output with FILE, including white space. --update writes the output into FILE; read it in the diff.
#
#     + COMMAND         on this machine, in a scratch folder, before the first boot
#     boot loader: ...  begins a boot. What follows, up to the next one, is the board's output
#     $ COMMAND         on the board, and shown; lines that begin with '> ' belong to it
#     # COMMENT         shown too
#     log: ...          the system log, behind the other lines of a boot, since they are not in step
#
# A command can use board/firmware.sh, $top, $work (the folder) and options (of board/run).
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
file=$(realpath "$1")
. "$top/board/firmware.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Write the commands of each boot to job1, job2 and so on.
write_jobs() {
    awk '
        function show() {
            if (shown) printf "cat <<\"##\"\n%s##\n%s", shown, commands >job
            shown = commands = ""
        }
        /^boot loader:/ { show(); job = "job" ++boots }
        !boots { next }
        /^[$#] / { show() }
        /^[$#>] / { shown = shown $0 "\n" }
        /^[$>] / { commands = commands substr($0, 3) "\n" }
        END { show() }' "$file"
}

# Put the log after the other lines of a boot, without the details of each step.
in_order() {
    awk '
        /^boot loader:/ { printf "%s", log_lines; log_lines = "" }
        /^log: .*(CHECK VERSION|CFlash_Erase\] =|offset :|CUTIL_KillProcAll)/ { next }
        /^log: / { log_lines = log_lines $0 "\n"; next }
        { print }
        END { printf "%s", log_lines }'
}

DESTDIR=$work/root cmake --install "$top/build/arm" --prefix / >/dev/null
make_release old
make_flash flash old.{kernel,app,etc}
options=()
eval "$(sed -n 's/^+ //p' "$file")"
write_jobs
for job in job*; do
    echo exit 0 >>"$job"
    options+=(--job "$job")
done
# A board that fails or hangs ends early. The output shows it.
"$top/board/run" --timeout 600 --install root "${options[@]}" flash 2>errors | in_order >output || true
if [ "${2:-}" = --update ]; then
    updated=$(sed '/^boot loader:/,$d' "$file" && cat output)
    echo "$updated" >"$file"
else
    diff -u <(sed -n '/^boot loader:/,$p' "$file") output || { cat errors && exit 1; }
fi
