#include "upgrade/local_udp.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>

#include "util/error_text.h"
#include "util/loopback.h"

int TEV_OpenLocalUDPSSocket(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        std::puts("[TEV_OpenLocalUDPSSocket] local socket error. exit");
        return -1;
    }
    // The two failures below leave the socket open, and nothing exits.
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
        std::puts("[TEV_OpenLocalUDPSSocket] setsockopt error. exit");
        return -1;
    }
    const sockaddr_in address = LoopbackAddress(port);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        std::puts("[TEV_OpenLocalUDPSSocket] local bind error. exit");
        return -1;
    }
    return fd;
}

int TEV_OpenLocalUDPCSocket()
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        std::printf("[TEV_OpenLocalUDPCSocket] local socket error. exit : %d, %s\n", errno,
                    ErrorText(errno));
    }
    return fd;
}

ssize_t TEV_SendLocalUDPData(int fd, uint16_t port, const void *buffer, size_t length)
{
    const ssize_t sent = SendToLoopback(fd, port, {static_cast<const uint8_t *>(buffer), length});
    if (sent == -1) {
        std::printf("[TEV_SendLocalUDPData] : error while send message : %s\n", ErrorText(errno));
    }
    return sent;
}
