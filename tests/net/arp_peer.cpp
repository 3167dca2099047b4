// arp_peer INTERFACE [FRAME...] -- COMMAND...: runs COMMAND and is the station at the other end of
// the wire meanwhile. Prints each ARP frame that comes in, as hexadecimal digits; sends the FRAMEs
// after the first one. Then prints how and when COMMAND ended, and the most memory it had resident.
//
// arp_peer INTERFACE FRAME --flood MILLISECONDS: sends FRAME so long without a pause.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

/// A packet socket for the ARP frames that come in at `interface`; -1 on failure.
int OpenWire(const char *interface)
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(0x0806);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(0x0806));
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ? fd : -1;
}

void Send(int wire, const std::string &digits)
{
    std::vector<uint8_t> frame;
    for (size_t i = 0; i < digits.size(); i += 2) {
        frame.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    send(wire, frame.data(), frame.size(), 0);
}

void PrintNext(int wire)
{
    uint8_t frame[128];
    const ssize_t size = recv(wire, frame, sizeof frame, 0);
    for (ssize_t i = 0; i < size; ++i) {
        std::printf("%02x", frame[i]);
    }
    std::puts("");
}

int Flood(int wire, const std::string &frame, const char *milliseconds)
{
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds{std::atoi(milliseconds)};
    while (std::chrono::steady_clock::now() < end) {
        Send(wire, frame);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> answers;
    int next = 2;
    for (; next < argc && std::string_view{argv[next]} != "--"; ++next) {
        answers.emplace_back(argv[next]);
    }
    const int wire = argc > 1 ? OpenWire(argv[1]) : -1;
    const bool floods = argc == 5 && std::string_view{argv[3]} == "--flood";
    if (wire < 0 || (!floods && next + 1 >= argc)) {
        std::perror("arp_peer");
        return 2;
    }
    if (floods) {
        return Flood(wire, argv[2], argv[4]);
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[next + 1], argv + next + 1);
        _exit(126);
    }
    int status = 0;
    rusage used{};
    for (bool ended = false;;) {
        pollfd state{wire, POLLIN, 0};
        if (poll(&state, 1, 20) > 0) {
            PrintNext(wire);
            for (const std::string &frame : std::exchange(answers, {})) {
                Send(wire, frame);
            }
        } else if (ended) {
            break; // and the wire has been quiet since
        } else {
            ended = wait4(child, &status, WNOHANG, &used) != 0;
        }
    }
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    std::printf("exit %d after %.0f ms, %ld kB\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                time.count(), used.ru_maxrss);
    return 0;
}
