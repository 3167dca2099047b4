// tev_arp INTERFACE ADDRESS MILLISECONDS: tells whether another station uses an IPv4 address,
// before the board takes it.

#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "bringup/applets.h"
#include "bringup/arp_probe.h"
#include "util/byte_order.h"
#include "util/elapsed_time.h"
#include "util/fd.h"
#include "util/number.h"

// For a packet socket of this kind, bind accepts only an address of this size, with the interface's
// name in it.
static_assert(sizeof(sockaddr) == 16 && sizeof(sockaddr::sa_data) == 14);
static_assert(SIOCGIFHWADDR == 0x8927 && sizeof(ifreq::ifr_name) == 16);

namespace
{

constexpr int kPollTime = 1;             // milliseconds
constexpr uint32_t kProbeInterval = 100; // milliseconds

/// The address in question, and the board's own end of the Ethernet.
struct Query {
    int fd;
    sockaddr interface;
    MacAddress own_mac;
    Ipv4Address ip;
};

/// The result of a moment of listening. kHarmless: no frame, or one that shows no conflict.
enum class Heard { kHarmless, kDropped, kConflict, kFailure };

bool IsArp(const ArpFrame &frame)
{
    return frame.ether_type == BytesBe16(kArpEtherType) &&
           (frame.operation == BytesBe16(kArpRequest) || frame.operation == BytesBe16(kArpReply));
}

/// Another station has the address, or asks for it, to reach it or to take it itself.
bool ShowsConflict(const ArpFrame &frame, const Query &query)
{
    const bool has_it = frame.sender_ip == query.ip && frame.sender_mac != query.own_mac;
    const bool asks_for_it = frame.operation == BytesBe16(kArpRequest) &&
                             frame.target_ip == query.ip && frame.target_mac != query.own_mac;
    return has_it || asks_for_it;
}

/// Waits a moment for a frame and looks at it.
Heard Listen(const Query &query)
{
    pollfd socket_state{query.fd, POLLIN, 0};
    const int ready = poll(&socket_state, 1, kPollTime);
    if (ready == 0) {
        return Heard::kHarmless;
    }
    if (ready != 1) {
        return Heard::kFailure;
    }
    if ((socket_state.revents & POLLIN) == 0) {
        return (socket_state.revents & POLLERR) != 0 ? Heard::kFailure : Heard::kDropped;
    }
    ArpFrame frame{}; // what a short frame lacks is zero
    if (recv(query.fd, &frame, sizeof frame, 0) < 0) {
        return Heard::kFailure;
    }
    if (!IsArp(frame)) {
        return Heard::kDropped;
    }
    return ShowsConflict(frame, query) ? Heard::kConflict : Heard::kHarmless;
}

/// Ignores a failure, which has been printed: the next probe may get out.
void Probe(const Query &query)
{
    CARP_SendProbe(query.fd, query.interface, kArpRequest, query.own_mac, Ipv4Address{},
                   MacAddress{}, query.ip);
}

/// Probes and listens for `timeout` milliseconds. Returns 0 when no conflict was seen, else -1.
int Watch(const Query &query, uint32_t timeout)
{
    const TimeStamp start = Now();
    TimeStamp last_probe = start;
    Probe(query);
    for (;;) {
        switch (Listen(query)) {
        case Heard::kHarmless:
            break;
        case Heard::kDropped:
            continue; // tests the time only after silence or an ARP frame
        case Heard::kConflict:
        case Heard::kFailure:
            return -1;
        }
        const TimeStamp now = Now();
        if (IsExpired(start, now, timeout)) {
            return 0;
        }
        if (IsExpired(last_probe, now, kProbeInterval)) {
            Probe(query);
            last_probe = Now();
        }
    }
}

/// Copies what fits. The rest of `out` stays zero; a name that fills it has no NUL byte.
void CopyName(std::string_view name, std::span<char> out)
{
    std::copy_n(name.begin(), std::min(name.size(), out.size()), out.begin());
}

bool ReadHardwareAddress(int fd, std::string_view interface, MacAddress &mac)
{
    ifreq request{};
    CopyName(interface, request.ifr_name);
    if (ioctl(fd, SIOCGIFHWADDR, &request) < 0) {
        return false;
    }
    std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
    return true;
}

/// Returns 0 when the address is free; -1 on a conflict or, without a message, on an error.
int CheckAddress(std::string_view interface, const Ipv4Address &ip, uint32_t timeout)
{
    const Fd fd{socket(AF_PACKET, SOCK_PACKET, htons(kArpEtherType))};
    if (!fd) {
        return -1;
    }
    Query query{fd.get(), {}, {}, ip};
    query.interface.sa_family = AF_PACKET;
    CopyName(interface, query.interface.sa_data);
    if (bind(fd.get(), &query.interface, sizeof query.interface) < 0 ||
        !ReadHardwareAddress(fd.get(), interface, query.own_mac)) {
        return -1;
    }
    return Watch(query, timeout);
}

/// Cuts `text` at its first blank. Returns the address in it, or 0.0.0.0 when there is none.
Ipv4Address ParseAddress(char *text)
{
    // Some C libraries refuse a blank after an address, and some store a part of an invalid one.
    // With 32 bits, the board's takes a number that is too large for 255.255.255.255.
    text[std::strcspn(text, " \t\n\v\f\r")] = '\0';
    in_addr address{};
    errno = 0;
    const bool is_address = inet_aton(text, &address) != 0 && errno != ERANGE;
    return is_address ? std::bit_cast<Ipv4Address>(address) : Ipv4Address{};
}

} // namespace

int tev_arp(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "%s: %s\n", argv[0], "bad option");
        // The usage names two of the three arguments.
        std::fprintf(stderr, "Usage: %s ifname IP\n", argv[0]);
        std::exit(-1);
    }
    return CheckAddress(argv[1], ParseAddress(argv[2]),
                        static_cast<uint32_t>(ParseLeadingInteger(argv[3])));
}
