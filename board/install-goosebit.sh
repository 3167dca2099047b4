#!/bin/bash
# Installs gooseBit, the fleet server of the demo, from PyPI into .cache/goosebit: exactly the files in
# goosebit.txt. Keeps a complete result. Uses this machine's settings for pip.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
cache=$(dirname "$here")/.cache/goosebit
. "$here/../scripts/run-control.sh"

wanted=$(cat "$0" "$here/goosebit.txt" <(/usr/bin/python3 --version) | sha256sum | cut -d ' ' -f 1)
on_exit true
wait_for_turn "${cache%/*}"
[ "$(cat "$cache/fingerprint" 2>/dev/null)" != "$wanted" ] || exit 0
echo "fleet server: downloading gooseBit"
rm -rf "$cache"
/usr/bin/python3 -m venv "$cache"
"$cache/bin/pip" install --quiet --disable-pip-version-check --require-hashes --only-binary :all: \
    -r "$here/goosebit.txt" >"$cache/log" 2>&1 || {
    cat "$cache/log" >&2
    echo "fleet server: gooseBit could not be installed from PyPI. './demo fleet --web' needs no fleet" \
        "server, and './demo fleet --hawkbit JAR' takes hawkBit's executable jar." >&2
    exit 1
}
echo "$wanted" >"$cache/fingerprint"
echo "fleet server: ready, $(du -sh "$cache" | cut -f 1)"
