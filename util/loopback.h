// Datagrams between the board's own processes, on 127.0.0.1.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstdint>
#include <span>

/// The address 127.0.0.1 with `port`.
sockaddr_in LoopbackAddress(uint16_t port);

/// Sends `bytes` to `port` in one datagram. Returns the result of sendto.
ssize_t SendToLoopback(int fd, uint16_t port, std::span<const uint8_t> bytes);
