// The datagrams that the system manager takes on the loopback address.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr uint16_t kSystemManagerPort = 4100;

/// What every such datagram begins with: "SYSP", four zero bytes, a command of four characters.
struct SystemManagerHeader {
    static constexpr size_t kSize = 12;
    std::array<char, kSize> bytes{'S', 'Y', 'S', 'P'};

    explicit constexpr SystemManagerHeader(const std::array<char, 4> &command)
    {
        for (size_t i = 0; i < command.size(); ++i) {
            bytes[8 + i] = command[i];
        }
    }
};

/// Announces a firmware upgrade.
constexpr SystemManagerHeader kUpgradeNotice{{'U', 'P', 'G', 'R'}};
