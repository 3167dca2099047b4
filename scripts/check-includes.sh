#!/bin/bash
# check-includes.sh: each folder includes only itself and the folders after it in its line.
set -euo pipefail
cd "$(dirname "$0")/.."

wrong=0
while read -r folder below; do
    may=$folder${below:+|${below// /|}}
    if grep -HnE '#include "' "$folder"/*.h "$folder"/*.cpp | grep -vE "#include \"($may)/"; then
        wrong=1
    fi
done <<'END'
app upgrade flash bringup hwtest util
upgrade flash util
flash util
bringup util
hwtest util
util
tools flash util
END
exit $wrong
