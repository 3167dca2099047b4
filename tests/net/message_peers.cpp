// message_peers: messages over the real loopback, between two channels of two processes. Says what
// does not hold; ends with 0 when all does.
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "upgrade/message_channel.h"

namespace
{

constexpr uint16_t kReceiverPort = 4100;
constexpr uint32_t kMessages = 1000;
constexpr size_t kLargest = 65'507 - sizeof(MessageHeader); // what a datagram holds

CICOMM g_sender, g_receiver; // static, since they are large
int g_faults = 0;

void Expect(bool holds, const char *what, uint32_t number)
{
    if (!holds) {
        std::printf("message %u: not %s\n", number, what);
        ++g_faults;
    }
}

/// A payload like no other message's.
std::vector<uint32_t> Payload(uint32_t number)
{
    std::minstd_rand random{number + 1};
    std::vector<uint32_t> words(kLargest / sizeof(uint32_t) + 1);
    for (uint32_t &word : words) {
        word = static_cast<uint32_t>(random());
    }
    return words;
}

void Send(uint32_t number)
{
    const int result = CICOMM_Send(&g_sender, number, kReceiverPort, Payload(number).data(),
                                   static_cast<int32_t>(kLargest));
    Expect(result == 65'507, "sent", number);
}

void ReceiveWhole(uint32_t number)
{
    uint32_t id = 0;
    const int size = CICOMM_Recv(&g_receiver, &id);
    Expect(size == static_cast<int>(kLargest) && id == number, "the one that arrives", number);
    Expect(std::memcmp(CICOMM_GetRecvData(&g_receiver), Payload(number).data(), kLargest) == 0,
           "unaltered", number);
}

/// The other process receives, and answers with a message without payload.
void ReceiveAndAnswerAll()
{
    for (uint32_t number = 0; number < kMessages; ++number) {
        ReceiveWhole(number);
        const auto port = static_cast<uint16_t>(CICOMM_GetRecvHeader(&g_receiver)->sender_port);
        CICOMM_Send(&g_receiver, number, port, nullptr, 0);
    }
    std::fflush(stdout);
    _exit(g_faults > 0 ? 1 : 0);
}

void SendAllAwaitingAnswers()
{
    const pid_t receiver = fork();
    if (receiver == 0) {
        ReceiveAndAnswerAll();
    }
    for (uint32_t number = 0; number < kMessages; ++number) {
        Send(number);
        uint32_t id = 0;
        const int size = CICOMM_Recv(&g_sender, &id);
        Expect(size == 0 && id == number, "answered", number);
    }
    int status = -1;
    waitpid(receiver, &status, 0);
    Expect(status == 0, "received by all", kMessages);
}

/// Nobody receives meanwhile: all are sent, what the socket has no room for is lost, and of that
/// the sender hears nothing. The first ones are whole.
void SendAllAtOnce()
{
    for (uint32_t number = 0; number < kMessages; ++number) {
        Send(number);
    }
    uint32_t arrived = 0;
    for (pollfd state{CICOMM_GetFd(&g_receiver), POLLIN, 0}; poll(&state, 1, 0) > 0; ++arrived) {
        ReceiveWhole(arrived);
    }
    Expect(arrived > 0 && arrived < kMessages, "lost in part", arrived);
}

} // namespace

int main()
{
    alarm(30); // a message lost on the way would be awaited for ever
    if (CICOMM_Init(&g_sender, 4200) != 0 || CICOMM_Init(&g_receiver, kReceiverPort) != 0) {
        return 2;
    }
    SendAllAwaitingAnswers();
    SendAllAtOnce();
    Expect(CICOMM_Send(&g_sender, 1, 4300, "abcd", 4) == 36, "sent to nobody", 0);
    Expect(CICOMM_Send(&g_sender, 1, kReceiverPort, Payload(1).data(), kLargest + 1) == -4,
           "too long", 0);
    return g_faults > 0 ? 1 : 0;
}
