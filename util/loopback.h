// The address at which the board's own processes reach one another.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>

/// The address 127.0.0.1 with `port`.
inline sockaddr_in LoopbackAddress(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}
