#include "bringup/arp_probe.h"

#include <cerrno>
#include <cstdio>

#include "util/byte_order.h"
#include "util/error_text.h"

namespace
{

constexpr MacAddress kBroadcast{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
constexpr uint16_t kEthernet = 1;
constexpr uint16_t kIpv4 = 0x0800;

} // namespace

int CARP_SendProbe(int fd, const sockaddr &address, uint16_t operation,
                   const MacAddress &sender_mac, const Ipv4Address &sender_ip,
                   const MacAddress &target_mac, const Ipv4Address &target_ip)
{
    const ArpFrame frame{
        .destination = kBroadcast,
        .source = sender_mac,
        .ether_type = BytesBe16(kArpEtherType),
        .hardware_type = BytesBe16(kEthernet),
        .protocol_type = BytesBe16(kIpv4),
        .hardware_address_length = sizeof(MacAddress),
        .protocol_address_length = sizeof(Ipv4Address),
        .operation = BytesBe16(operation),
        .sender_mac = sender_mac,
        .sender_ip = sender_ip,
        .target_mac = target_mac,
        .target_ip = target_ip,
    };
    if (sendto(fd, &frame, sizeof frame, 0, &address, sizeof address) < 0) {
        const int error = errno; // printing may change it
        std::fprintf(stderr, "sendto: %s\n", ErrorText(error));
        return -error;
    }
    return 0;
}
