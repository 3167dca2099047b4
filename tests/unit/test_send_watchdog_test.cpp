// The applet and the datagrams that it sends.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "tests/fake_board.h"
#include "util/system_manager.h"

namespace
{

/// Starts the applet, which gets SIGTERM with the `nth` line of this text, or when there are many.
void StartUntil(FakeBoard &board, const std::string &text, int nth, std::vector<std::string> words)
{
    board.on_line = [text, nth, left = 5000](const std::string &line) mutable {
        --left;
        if ((line == text && --nth == 0) || left == 0) {
            raise(SIGTERM);
        }
    };
    words.insert(words.begin(), "test_send_watchdog");
    EXPECT_EQ(board.Start(words), 0);
}

const std::string kHeader = "53 59 53 50 00 00 00 00 41 4c 49 56";

using SendWatchdog = BoardTest;
using SystemManager = BoardTest;

} // namespace

TEST_F(SendWatchdog, GoesOnWhenNothingCanBeSent)
{
    board.Fail("socket", EMFILE, 2);
    board.Fail("sendto", ENETUNREACH, 2);
    StartUntil(board, "sleep 30", 4, {});
    EXPECT_EQ(board.transcript(), R"(
out watchdog [0, 30]
send 127.0.0.1:4100 13 bytes
sleep 30
out [CSYSMGR_SendPacket] local socket error. exit
sleep 30
out [CSYSMGR_SendPacket] : error while send message : Network is unreachable
sleep 30
send 127.0.0.1:4100 13 bytes
sleep 30
)");
    EXPECT_EQ(Hex(board.datagrams.front()), kHeader + " 01");
    EXPECT_EQ(Hex(board.datagrams.back()), kHeader + " 01");
}

TEST_F(SendWatchdog, FeedsTheHardwareAndDisarmsItAtTheEnd)
{
    board.Fail("write", EIO, 2); // does not matter
    StartUntil(board, "sleep 5", 2, {"-h", "5"});
    StartUntil(board, "out watchdog [1, 30]", 1, {"-h"}); // stopped before it began
    board.devices.erase("/dev/misc/watchdog");
    StartUntil(board, "", 1, {"-h", "5", "more"});
    EXPECT_EQ(board.transcript(), R"(
out watchdog [1, 5]
watchdog write 00
sleep 5 x2
watchdog write 56
out watchdog [1, 30]
watchdog write 56
out watchdog [1, 5]
out can't open
)");
}

TEST_F(SendWatchdog, TakesItsInterval)
{
    StartUntil(board, "sleep 5", 1, {"-x", "5"});
    StartUntil(board, "sleep 30", 1, {"5"});
    StartUntil(board, "sleep 7", 1, {"-hw", "+07s"});
    StartUntil(board, "sleep 4294967295", 1, {"", "-1"});
    EXPECT_EQ(board.transcript({"out", "sleep"}), R"(
out watchdog [0, 5]
sleep 5
out watchdog [0, 30]
sleep 30
out watchdog [0, 7]
sleep 7
out watchdog [0, -1]
sleep 4294967295
)");
    FakeBoard other;
    StartUntil(other, "sleep 0", 1000, {"5", "-h"}); // no number: without a pause
    EXPECT_EQ(other.datagrams.size(), 1000U);
    EXPECT_EQ(other.clock, FakeBoard{}.clock);
}

TEST_F(SystemManager, TakesUpTo256Bytes)
{
    const std::string data(257, '\xA5');
    const auto *bytes = reinterpret_cast<const uint8_t *>(data.data());
    const uint8_t *const kNone = nullptr;
    const std::tuple<const uint8_t *, int, int, std::string> cases[] = {
        {bytes, 256, 0, kHeader + " " + Hex(data.substr(1))},
        {bytes, 257, -1, "(none)"},
        {bytes, INT32_MAX, -1, "(none)"},
        {kNone, 1, -1, "(none)"},
        {kNone, 0, 0, kHeader},
        {kNone, -1, 0, kHeader.substr(0, 32)},
        {bytes, INT32_MIN, 0, ""},
    };
    for (const auto &[payload, length, result, datagram] : cases) {
        FakeBoard other;
        EXPECT_EQ(other.Run(CSYSMGR_SendPacket, 0x56494C41U, payload, length), result) << length;
        EXPECT_EQ(other.datagrams.empty() ? "(none)" : Hex(other.datagrams.front()), datagram);
        EXPECT_EQ(other.transcript({"out"}), "\n");
    }
}

TEST_F(SystemManager, IsNotReachedThroughDescriptorZero)
{
    board.Run([] {
        const int input = dup(0);
        close(0);
        EXPECT_EQ(CSYSMGR_SendPacket(kAliveCommand, nullptr, 0), -1);
        EXPECT_EQ(fcntl(0, F_GETFD), 0) << "it was closed";
        dup2(input, 0);
        return close(input);
    });
    EXPECT_EQ(board.transcript(), "\n");
}
