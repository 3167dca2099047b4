// udp_capture PORT COUNT: prints the next datagrams on the loopback address, a line each.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    if (argc != 3) {
        return 2;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[1])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        std::perror("bind");
        return 1;
    }
    for (int i = 0; i < std::atoi(argv[2]); ++i) {
        uint8_t bytes[512];
        const ssize_t count = recv(fd, bytes, sizeof bytes, 0);
        for (ssize_t n = 0; n < count; ++n) {
            std::printf(n == 0 ? "%02x" : " %02x", bytes[n]);
        }
        std::puts("");
        std::fflush(stdout);
    }
    return 0;
}
