// ARP on Ethernet: the frame, and the probe that asks for an address.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>

using MacAddress = std::array<uint8_t, 6>;
using Ipv4Address = std::array<uint8_t, 4>; ///< in written order

constexpr uint16_t kArpEtherType = 0x0806;
constexpr uint16_t kArpRequest = 1;
constexpr uint16_t kArpReply = 2;

/// An ARP frame as on the wire. All members are bytes, so there are no gaps, and words have their
/// high byte first on every CPU.
struct ArpFrame {
    MacAddress destination;
    MacAddress source;
    std::array<uint8_t, 2> ether_type;
    std::array<uint8_t, 2> hardware_type;
    std::array<uint8_t, 2> protocol_type;
    uint8_t hardware_address_length;
    uint8_t protocol_address_length;
    std::array<uint8_t, 2> operation;
    MacAddress sender_mac;
    Ipv4Address sender_ip;
    MacAddress target_mac;
    Ipv4Address target_ip;
};
static_assert(sizeof(ArpFrame) == 42 && alignof(ArpFrame) == 1);
static_assert(offsetof(ArpFrame, ether_type) == 12 && offsetof(ArpFrame, operation) == 20);
static_assert(offsetof(ArpFrame, sender_mac) == 22 && offsetof(ArpFrame, sender_ip) == 28);
static_assert(offsetof(ArpFrame, target_mac) == 32 && offsetof(ArpFrame, target_ip) == 38);

/// Broadcasts one ARP frame. `sender_mac` is its source on the Ethernet too.
///
/// @param fd         a packet socket that carries whole frames
/// @param address    what the socket is bound to: the interface's name is its data
/// @param operation  kArpRequest or kArpReply
/// @return 0, or minus the error number, with the system's message for "sendto" on standard error
int CARP_SendProbe(int fd, const sockaddr &address, uint16_t operation,
                   const MacAddress &sender_mac, const Ipv4Address &sender_ip,
                   const MacAddress &target_mac, const Ipv4Address &target_ip);
