// The message channel and the datagram sockets under it.
#include "upgrade/message_channel.h"

#include <cstring>

#include "tests/fake_board.h"
#include "upgrade/local_udp.h"

using MessageChannel = BoardTest;

namespace
{

CICOMM g_channel; // static, since it is large

int OpenSendAndClose(const void *payload, int32_t size)
{
    CICOMM_Init(&g_channel, 0);
    const int result = g_channel.operations.send(&g_channel, 0x0102, 4100, payload, size);
    g_channel.operations.close(&g_channel);
    return result;
}

const std::string kMessage = "49 43 4f 4d 01 00 00 00 02 01 00 00 68 10 00 00 04 00 00 00 "
                             "00 00 00 00 00 00 00 00 00 00 00 00 61 62 63 64";

} // namespace

TEST_F(MessageChannel, CarriesAMessage)
{
    board.Run([&] {
        EXPECT_EQ(CICOMM_Init(&g_channel, 4200), 0);
        EXPECT_EQ(g_channel.operations.send(&g_channel, 0x0102, 4100, "abcd", 4), 36);
        EXPECT_EQ(Hex(board.datagrams.front()), kMessage);
        uint32_t id = 0;
        EXPECT_EQ(g_channel.operations.recv(&g_channel, &id), 4);
        EXPECT_EQ(id, 0x0102U);
        EXPECT_EQ(g_channel.operations.get_recv_header(&g_channel)->sender_port, 4200U);
        EXPECT_EQ(std::memcmp(g_channel.operations.get_recv_data(&g_channel), "abcd", 4), 0);
        // The declared size is believed.
        board.datagrams.push_back(std::string(16, 'x') + "\x70\x11\x01" + std::string(13, '\0'));
        EXPECT_EQ(CICOMM_Recv(&g_channel, nullptr), 70'000);
        board.Fail("recvfrom", 0);
        EXPECT_EQ(CICOMM_Recv(&g_channel, nullptr), -1);

        EXPECT_GE(g_channel.operations.get_fd(&g_channel), 0);
        EXPECT_EQ(g_channel.operations.close(&g_channel), 0);
        EXPECT_EQ(g_channel.operations.get_fd(&g_channel), -1);
        EXPECT_EQ(CICOMM_Recv(&g_channel, &id), -1);
        EXPECT_EQ(CICOMM_Close(&g_channel), -1);
        EXPECT_EQ(CICOMM_Send(&g_channel, 1, 4100, "abcd", 4), -4);
        return 0;
    });
    EXPECT_EQ(board.transcript(), R"(
reuse address
bind 127.0.0.1:4200
send 127.0.0.1:4100 36 bytes
out [CICOMM_Recv] error, reason(recvfrom)
out [CICOMM_Send] error, reason(SendTo -1 vs 36)
)");
}

TEST_F(MessageChannel, TakesPayloadsUpToItsBuffer)
{
    const std::string large(102369, 'x');
    EXPECT_EQ(board.Run(OpenSendAndClose, nullptr, 0), 32);
    EXPECT_EQ(board.Run(OpenSendAndClose, "z", 1), 33);
    EXPECT_EQ(board.datagrams.back().back(), 'z');
    EXPECT_EQ(board.Run(OpenSendAndClose, large.data(), 102368), 102400);
    EXPECT_EQ(Hex(board.datagrams.back().substr(16, 4)), "e0 8f 01 00");
    EXPECT_EQ(board.datagrams.back().substr(32), large.substr(1));
    EXPECT_EQ(board.Run(OpenSendAndClose, large.data(), 102369), -2);
    EXPECT_EQ(board.Run(OpenSendAndClose, nullptr, 1), -1);
    EXPECT_EQ(board.transcript(), R"(
send 127.0.0.1:4100 32 bytes
send 127.0.0.1:4100 33 bytes
send 127.0.0.1:4100 102400 bytes
out [CICOMM_Send] error, reason(size over 102369 vs 102368)
out [CICOMM_Send] error, reason(size[1], buff[0])
)");
}

TEST_F(MessageChannel, SendsTheRestAfterAnErrorThatPasses)
{
    board.longest_send = 32;
    board.Fail("sendto", EAGAIN, 1);
    board.Fail("sendto", EINTR, 3);
    EXPECT_EQ(board.Run(OpenSendAndClose, "abcd", 4), 36);
    EXPECT_EQ(board.transcript(), R"(
usleep 1
send 127.0.0.1:4100 32 bytes
usleep 1
send 127.0.0.1:4100 4 bytes
)");
    EXPECT_EQ(board.datagrams.back(), "abcd");
}

TEST_F(MessageChannel, GivesUp)
{
    const std::tuple<int, int64_t, int, std::string> cases[] = {
        {ENOBUFS, 0, -4,
         "out [SendTo] Error Number : 105, Error String No buffer space available\n"
         "out [CICOMM_Send] error, reason(SendTo -1 vs 36)\n"},
        {0, 0, -4, "out [CICOMM_Send] error, reason(SendTo 0 vs 36)\n"},
        {EAGAIN, 4'000'000, -4, "usleep 1\nout [CICOMM_Send] error, reason(SendTo -1 vs 36)\n"},
        // Also what was sent, but too late: in the fourth second after the present one.
        {-1, 4'000'000, -4,
         "send 127.0.0.1:4100 36 bytes\nout [CICOMM_Send] error, reason(SendTo 36 vs 36)\n"},
        {-1, 3'999'999, 36, "send 127.0.0.1:4100 36 bytes\n"},
    };
    for (const auto &[error, send_time, result, transcript] : cases) {
        FakeBoard other;
        other.send_time = send_time;
        other.Fail(error >= 0 ? "sendto" : "none", error);
        EXPECT_EQ(other.Run(OpenSendAndClose, "abcd", 4), result);
        EXPECT_EQ(other.transcript(), "\n" + transcript);
    }
}

TEST_F(MessageChannel, DoesNotOpen)
{
    const std::tuple<uint16_t, std::string, std::string> cases[] = {
        {4200, "socket", "out [TEV_OpenLocalUDPSSocket] local socket error. exit\n"},
        {4200, "setsockopt", "out [TEV_OpenLocalUDPSSocket] setsockopt error. exit\n"},
        {4200, "bind", "out [TEV_OpenLocalUDPSSocket] local bind error. exit\n"},
        {0, "socket",
         "out [TEV_OpenLocalUDPCSocket] local socket error. exit : 24, Too many open files\n"},
    };
    board.may_stay_open = 2; // those of the cases
    for (const auto &[port, function, line] : cases) {
        FakeBoard other;
        other.may_stay_open = function == "socket" ? 0 : 1; // deliberately
        other.Fail(function, EMFILE);
        EXPECT_EQ(other.Run(CICOMM_Init, &g_channel, port), -1);
        EXPECT_EQ(other.transcript({"out"}),
                  "\n" + line + "out [CICOMM_Init] error, reason(TEV_OpenLocalUDPSSocket)\n");
        EXPECT_EQ(CICOMM_GetFd(&g_channel), -1);
    }
}

TEST_F(MessageChannel, SaysThatADatagramCouldNotBeSent)
{
    board.Fail("sendto", ENETUNREACH);
    EXPECT_EQ(board.Run(TEV_SendLocalUDPData, 3, uint16_t{4100}, "abcd", 4), -1);
    EXPECT_EQ(board.transcript(), "\nout [TEV_SendLocalUDPData] : error while send message : "
                                  "Network is unreachable\n");
}
