#!/bin/bash
# Says what is still to be built before the board tests can run.
cd "${BASH_SOURCE%/*}/../.." || exit 1
status=0
for part in host:fwpack arm:qve arm-test:board/devices/board_devices; do
    [ -e "build/${part/://}" ] || {
        echo "build/${part/://} is missing; run cmake --preset ${part%:*} && cmake --build --preset ${part%:*}"
        status=1
    }
done
[ -e .cache/board/fingerprint ] || { echo "The board's image is missing; run board/build-image.sh" && exit 1; }
[ -e .cache/engine/fingerprint ] || { echo "The update engine is missing; run board/build-engine.sh" && exit 1; }
exit $status
