#!/bin/bash
# Says what to build before the board tests can run.
cd "${BASH_SOURCE%/*}/../.." || exit 1
missing=0

# needs FILE COMMAND: COMMAND makes FILE.
needs() {
    [ -e "$1" ] || {
        echo "$1 is missing; first run: $2"
        missing=1
    }
}

for preset in host:fwpack arm:qve arm-test:board/devices/board_devices arm-test:tests/board/programs/watchdog_timeout; do
    needs "build/${preset/:/\/}" "cmake --preset ${preset%:*} && cmake --build --preset ${preset%:*}"
done
needs .cache/board/fingerprint board/build-image.sh
exit $missing
