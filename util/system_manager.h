// The datagrams that the system manager takes on the loopback address.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "util/byte_order.h"

constexpr uint16_t kSystemManagerPort = 4100;

// The commands: four characters, the first one in the lowest byte.
constexpr uint32_t kUpgradeCommand = 0x52475055; // "UPGR": a firmware upgrade begins
constexpr uint32_t kAliveCommand = 0x56494C41;   // "ALIV"

/// The beginning of every datagram: "SYSP", four zero bytes, the command.
struct SystemManagerHeader {
    static constexpr size_t kSize = 12;
    std::array<uint8_t, kSize> bytes{'S', 'Y', 'S', 'P'};

    explicit constexpr SystemManagerHeader(uint32_t command) { StoreLe32(&bytes[8], command); }
};

constexpr SystemManagerHeader kUpgradeNotice{kUpgradeCommand};

/// Sends a datagram with `length` bytes of `data`, at most 256, after the header. Prints what
/// failed. A negative length is not refused and cuts the header short.
///
/// @param data  may be null when there is none
/// @return 0, also when sending failed; -1 without a socket; -1 without a message for too much or
///         missing data, and for a socket with descriptor 0, which stays open
int CSYSMGR_SendPacket(uint32_t command, const uint8_t *data, int32_t length);
