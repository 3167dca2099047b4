#!/bin/bash
# message_test.sh MESSAGE_PEERS: messages of the largest size on a loopback of their own.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # where ip is, also for those who are not root
. "${BASH_SOURCE%/*}/../../scripts/isolate.sh"
isolate_me "$@"
ip link set lo up
said=$("$1") || { echo "FAILED: status $?" "$said" >&2 && exit 1; }
# The channel takes larger messages, but no datagram holds one.
[ "$said" = "[SendTo] Error Number : 90, Error String Message too long
[CICOMM_Send] error, reason(SendTo -1 vs 65508)" ] || { echo "FAILED: $said" >&2 && exit 1; }
