#!/bin/bash
# Checks the documents: each relative link leads to an existing file, and to a heading in it. Each
# picture renders, in light and in dark colours. The tables of settings and of models match the program.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
faults=0

fault() {
    echo "FAILED: $*" >&2
    faults=$((faults + 1))
}

files() {
    find . \( -name build -o -name '.?*' \) -prune -o -name "$1" -print
}

# headings FILE: prints the headings' names for links.
headings() {
    sed -n 's/^#\+ //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

check_links() {
    local document link target
    while IFS=: read -r document link; do
        target=$(dirname "$document")/${link%%#*}
        [[ $link != '#'* ]] || target=$document
        if [ ! -e "$target" ]; then
            fault "$document: no file '$link'"
        elif [[ $link == *'#'* ]] && ! headings "$target" | grep -qxF -- "${link#*#}"; then
            fault "$document: no heading '$link'"
        fi
    done < <(files '*.md' | xargs grep -oHE '\]\([^)]+\)|src(set)?="[^"]+"' |
        sed -E 's/:(\]\(|src(set)?=")/:/; s/[)"]$//' | grep -v ':https\?:')
}

# dark FILE: prints the picture with its dark colours.
dark() {
    sed '/@media (prefers-color-scheme: dark) {$/,/^ *}$/{/@media/d; /^ *}$/d}' "$1"
}

check_pictures() {
    local picture
    while read -r picture; do
        dark "$picture" >"$work/dark.svg"
        { rsvg-convert -o "$work/light" "$picture" && rsvg-convert -o "$work/dark" "$work/dark.svg"; } ||
            fault "$picture: cannot be drawn"
        ! cmp -s "$work/light" "$work/dark" || fault "$picture: has no dark colours"
    done < <(files '*.svg')
}

# shellcheck disable=SC2016 # the quotes are the table's
# The table of settings has exactly what the program saves.
check_settings() {
    diff <(sed -n 's:.*cp -dpR /etc/\(.*\) /tmp/.*:\1 the whole file:p
            s:.*{"/etc/\([^"]*\)", "\([^"]*\)"}.*:\1 the number \2:p' flash/settings.cpp | sort) \
        <(sed -n 's/^| `\([^`]*\)` | the \(whole file\|number `[^`]*`\).*/\1 the \2/p' docs/settings.md |
            tr -d '`' | sort) || fault "docs/settings.md and flash/settings.cpp differ"
}

# commands_of_models: prints what load_drv runs on each model, a model a line. The program's own plans run,
# without its shell and configuration file.
commands_of_models() {
    g++ -std=c++20 -I. -o "$work/models" bringup/load_drv.cpp bringup/model.cpp -x c++ - <<'END' && "$work/models"
#include <cstdio>
#include <span>
#include "bringup/applets.h"
static char model[8];
void RunShell(const char *command) { std::printf(", %s", command); }
void RunShell(std::span<const char *const> commands) { for (const char *command : commands) RunShell(command); }
int CUTIL_GetConfValue(const char *, const char *, std::span<char> value)
{
    return std::snprintf(value.data(), value.size(), "%s", model);
}
int main()
{
    for (int i = 1; i <= 55; ++i) {
        std::snprintf(model, sizeof model, i < 55 ? "VM%02d" : "other", i);
        std::printf("%s", model);
        load_drv(0, nullptr);
        std::puts("");
    }
}
END
}

# table_of_models: prints the same from the table in your-board.md. Its last row is for all models without a row.
table_of_models() {
    tr -d '`' <docs/your-board.md | awk -F' *\\| *' '
        /^\| (VM[0-9]|all others)/ { count = split($2, models, ", ")
                                    for (i = 1; i <= count; ++i) commands[models[i]] = $3 }
        END { for (i = 1; i <= 55; ++i) { model = i < 55 ? sprintf("VM%02d", i) : "other"
                  print model ", " commands[model in commands ? model : "all others"] } }'
}

# In the table, a module has its name only, and registers in a row are one entry.
check_models() {
    diff <(commands_of_models | sed -E 's:/sbin/insmod /dvs/(Hi3512reg|extdrv/([a-z0-9_]+))\.ko:\1:g; s:extdrv/::g
            s:/bin/reg [^,]*:registers:g; s/registers(, registers)+/registers/g') \
        <(table_of_models) || fault "docs/your-board.md and bringup/load_drv.cpp differ"
}

# README.md names the packages for a build.
check_packages() {
    grep -qxF "    apt install $(. scripts/install-packages.sh && packages_of build)" README.md ||
        fault "README.md lacks packages that scripts/install-packages.sh has"
}

check_links
check_packages
check_settings
check_models
check_pictures
[ "$faults" -eq 0 ]
