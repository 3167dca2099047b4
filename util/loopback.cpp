#include "util/loopback.h"

#include <arpa/inet.h>
#include <sys/socket.h>

sockaddr_in LoopbackAddress(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

ssize_t SendToLoopback(int fd, uint16_t port, std::span<const uint8_t> bytes)
{
    const sockaddr_in address = LoopbackAddress(port);
    return sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&address),
                  sizeof address);
}
