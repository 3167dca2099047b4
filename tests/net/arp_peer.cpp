// arp_peer INTERFACE [--flood MILLISECONDS] [FRAME...] -- COMMAND...: runs COMMAND and is the
// station at the other end of the wire meanwhile. Prints each ARP frame that comes in, as
// hexadecimal digits; sends the FRAMEs after the first one, for so long without a pause, and tells
// whether COMMAND is still running then. Prints how and when it ended, the most memory that it had
// resident, and the most descriptors.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
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

std::string Bytes(const std::string &digits)
{
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

/// Sends the frames, once or for so long.
void Send(int wire, const std::vector<std::string> &frames, std::chrono::milliseconds flood)
{
    setpriority(PRIO_PROCESS, 0, -20); // no pause on a busy machine either, if that is allowed
    const auto end = std::chrono::steady_clock::now() + flood;
    do {
        for (const std::string &frame : frames) {
            send(wire, frame.data(), frame.size(), 0);
        }
    } while (std::chrono::steady_clock::now() < end);
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

/// Of the process `id`; 0 when it has ended.
std::ptrdiff_t CountDescriptors(pid_t id)
{
    std::error_code ended;
    const std::filesystem::directory_iterator list{"/proc/" + std::to_string(id) + "/fd", ended};
    return std::distance(list, {});
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> answers;
    std::chrono::milliseconds flood{0};
    int next = 2;
    for (; next < argc && std::string_view{argv[next]} != "--"; ++next) {
        if (std::string_view{argv[next]} == "--flood" && next + 1 < argc) {
            flood = std::chrono::milliseconds{std::atoi(argv[++next])};
        } else {
            answers.push_back(Bytes(argv[next]));
        }
    }
    const int wire = argc > 1 ? OpenWire(argv[1]) : -1;
    if (wire < 0 || next + 1 >= argc) {
        std::perror("arp_peer");
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[next + 1], argv + next + 1);
        _exit(126);
    }
    int status = 0;
    rusage used{};
    std::ptrdiff_t descriptors = 0;
    for (bool ended = false;;) {
        descriptors = std::max(descriptors, CountDescriptors(child));
        pollfd state{wire, POLLIN, 0};
        if (poll(&state, 1, 20) > 0) {
            PrintNext(wire);
            if (!answers.empty()) {
                Send(wire, std::exchange(answers, {}), flood);
                descriptors = std::max(descriptors, CountDescriptors(child));
                ended = wait4(child, &status, WNOHANG, &used) != 0;
                if (flood.count() > 0 && !ended) {
                    std::puts("still running after the flood");
                }
            }
        } else if (ended) {
            break; // and the wire has been quiet since
        } else {
            ended = wait4(child, &status, WNOHANG, &used) != 0;
        }
    }
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    std::printf("exit %d after %.0f ms, %ld kB, %td descriptors\n",
                WIFEXITED(status) ? WEXITSTATUS(status) : -1, time.count(), used.ru_maxrss,
                descriptors);
    return 0;
}
