// Datagrams between the board's own processes, on 127.0.0.1.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

/// Opens a socket that receives on `port`. Prints what failed. A socket that cannot be set up stays
/// open.
///
/// @return the socket, or -1
int TEV_OpenLocalUDPSSocket(uint16_t port);

/// Opens a socket that only sends. Prints what failed.
///
/// @return the socket, or -1
int TEV_OpenLocalUDPCSocket();

/// Sends `length` bytes to `port` in one datagram, without a retry. Prints what failed.
///
/// @return the bytes sent, or -1
ssize_t TEV_SendLocalUDPData(int fd, uint16_t port, const void *buffer, size_t length);
