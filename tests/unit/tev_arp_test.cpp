#include "bringup/arp_probe.h"
#include "tests/fake_board.h"

AppletHandler tev_arp;

namespace
{

using namespace std::string_literals;

const std::string kOwnMac = "\x02\0\0\0\0\x01"s, kOtherMac = "\x02\0\0\0\0\x02"s, kNoMac(6, '\0');
const std::string kWanted = "\xc0\0\x02\x09"s, kElse = "\xc0\0\x02\x08"s, kNoIp(4, '\0');

const std::string kProbe = "ff ff ff ff ff ff 02 00 00 00 00 01 08 06 00 01 08 00 06 04 00 01 "
                           "02 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 c0 00 02 09";

std::string Frame(const std::string &operation, const std::string &sender_mac,
                  const std::string &sender_ip, const std::string &target_mac,
                  const std::string &target_ip, const std::string &ether_type = "\x08\x06")
{
    return kNoMac + kNoMac + ether_type + "\0\x01\x08\0\x06\x04"s + operation + sender_mac +
           sender_ip + target_mac + target_ip;
}

const std::string kRequest = "\0\x01"s, kReply = "\0\x02"s;
const std::string kConflict = Frame(kReply, kOtherMac, kWanted, kOwnMac, kNoIp);

class TevArp : public BoardTest
{
protected:
    int Check(const std::string &timeout, const std::string &interface = "eth0",
              const std::string &address = "192.0.2.9")
    {
        return board.Start({"tev_arp", interface, address, timeout}, tev_arp);
    }
    int Hear(std::deque<FakeEthernet::Arrival> arrivals)
    {
        board.ethernet.arrivals = std::move(arrivals);
        return Check("0");
    }
};

} // namespace

TEST_F(TevArp, ProbesEveryTenthOfASecond)
{
    EXPECT_EQ(Check("1000"), 0);
    EXPECT_EQ(board.transcript(), R"(
packet socket 10 2054
bind eth0
request 35111 eth0
send eth0 420 bytes x10
)");
    for (const std::string &frame : board.datagrams) {
        EXPECT_EQ(Hex(frame), kProbe);
    }
}

TEST_F(TevArp, EndsAtItsTimeout)
{
    const std::tuple<int64_t, std::string, size_t, int64_t> cases[] = {
        // start within the second, time-out, probes, milliseconds
        {0, "0", 1, 1},
        {0, "99", 1, 99},
        {0, "100", 1, 100},
        {0, "101 or so", 2, 101},
        {100'000, "850", 9, 850},
        // The turn of a second counts as a second more, until the next turn of the fraction.
        {950'000, "1000", 1, 50},
        {950'000, "1100", 2, 100},
        {500'000, "2600", 16, 1600},
    };
    for (const auto &[start, timeout, probes, milliseconds] : cases) {
        board.clock = 1'000'000'000 + start;
        board.datagrams.clear();
        EXPECT_EQ(Check(timeout), 0);
        EXPECT_EQ(board.datagrams.size(), probes) << timeout;
        EXPECT_EQ(board.clock - 1'000'000'000 - start, milliseconds * 1000) << timeout;
    }
}

TEST_F(TevArp, JudgesWhatItHears)
{
    // Dropped is what the run goes on after without a look at the time, which is over.
    enum Verdict { kIsConflict, kIsHarmless, kIsDropped };
    const std::tuple<FakeEthernet::Arrival, Verdict> cases[] = {
        {{kConflict}, kIsConflict},
        {{Frame(kRequest, kOtherMac, kWanted, kNoMac, kWanted)}, kIsConflict},
        {{Frame(kRequest, kOtherMac, kWanted, kOwnMac, kElse)}, kIsConflict},
        {{Frame(kRequest, kOtherMac, kElse, kNoMac, kWanted)}, kIsConflict},
        {{Frame(kRequest, kOtherMac, kNoIp, kNoMac, kWanted)}, kIsConflict},
        {{Frame(kRequest, kOwnMac, kNoIp, kNoMac, kWanted)}, kIsConflict},
        {{Frame(kReply, kOwnMac, kWanted, kOtherMac, kElse)}, kIsHarmless},
        {{Frame(kReply, kOtherMac, kElse, kOtherMac, kWanted)}, kIsHarmless},
        {{Frame(kRequest, kOtherMac, kElse, kOwnMac, kWanted)}, kIsHarmless},
        {{Frame(kRequest, kOtherMac, kElse, kNoMac, kElse)}, kIsHarmless},
        {{Frame(kRequest, kOtherMac, kElse, kNoMac, kElse), POLLIN | POLLERR}, kIsHarmless},
        {{Frame(kRequest, kOtherMac, kWanted, kNoMac, kWanted).substr(0, 28)}, kIsHarmless},
        {{Frame(kReply, kOtherMac, kWanted, kNoMac, kWanted, "\x08\0"s)}, kIsDropped},
        {{Frame(kReply, kOtherMac, kWanted, kNoMac, kWanted, "\x06\x08")}, kIsDropped},
        {{Frame("\0\0"s, kOtherMac, kWanted, kNoMac, kWanted)}, kIsDropped},
        {{Frame("\0\x03"s, kOtherMac, kWanted, kNoMac, kWanted)}, kIsDropped},
        {{Frame("\x01\0"s, kOtherMac, kWanted, kNoMac, kWanted)}, kIsDropped},
        {{kConflict.substr(0, 20)}, kIsDropped},
        {{"", POLLHUP}, kIsDropped},
        {{"", POLLERR | POLLHUP}, kIsConflict},
    };
    for (const auto &[arrival, verdict] : cases) {
        SCOPED_TRACE(Hex(arrival.frame) + " events " + std::to_string(arrival.events));
        EXPECT_EQ(Hear({arrival}), verdict == kIsConflict ? -1 : 0);
        EXPECT_EQ(Hear({arrival, {kConflict}}), verdict == kIsHarmless ? 0 : -1);
    }
    // What a short frame lacks is not what came before it.
    EXPECT_EQ(
        Hear({{Frame("\0\x03"s, kOtherMac, kWanted, kNoMac, kWanted)}, {kConflict.substr(0, 22)}}),
        0);
}

TEST_F(TevArp, CutsNamesAndTakesAnyAddress)
{
    Check("0", "an-interface-of-20-c");
    Check("0", "eth0", "192.0.2");
    Check("0", "eth0", "192.0.2.256");
    EXPECT_EQ(board.transcript({"bind", "request", "send"}), R"(
bind an-interface-o
request 35111 an-interface-of-
send an-interface-o 42 bytes
bind eth0
request 35111 eth0
send eth0 42 bytes
bind eth0
request 35111 eth0
send eth0 42 bytes
)");
    EXPECT_EQ(Hex(board.datagrams[1].substr(38)), "c0 00 00 02");
    EXPECT_EQ(Hex(board.datagrams[2].substr(38)), "00 00 00 00");
    for (const std::string &last : {std::string{"9 x\n"}, std::string(60, '0') + "11"}) {
        board.ethernet.arrivals = {{kConflict}};
        EXPECT_EQ(Check("0", "eth0", "192.0.2." + last), -1);
    }
}

TEST_F(TevArp, FailsSilently)
{
    for (const char *function : {"socket", "bind", "ioctl", "poll", "recv"}) {
        board.datagrams.clear();
        board.Fail(function, EINTR);
        EXPECT_EQ(Hear({{}}), -1) << function;
        EXPECT_EQ(board.datagrams.size(), *function == 'p' || *function == 'r' ? 1U : 0U);
    }
    EXPECT_EQ(board.transcript({"out", "err", "syslog"}), "\n");
}

TEST_F(TevArp, GoesOnAfterAProbeThatDidNotGetOut)
{
    board.Fail("sendto", ENETDOWN, 2);
    EXPECT_EQ(Check("1000"), 0);
    EXPECT_EQ(board.transcript({"send", "err"}), R"(
send eth0 42 bytes
err sendto: Network is down
send eth0 336 bytes x8
)");
}

TEST_F(TevArp, SendsAnyFrame)
{
    const auto send = [] {
        return CARP_SendProbe(3, {AF_PACKET, "eth1"}, 0x0102, {1, 2, 3, 4, 5, 6}, {7, 8, 9, 10},
                              {11, 12, 13, 14, 15, 16}, {17, 18, 19, 20});
    };
    EXPECT_EQ(board.Run(send), 0);
    board.Fail("sendto", ENETDOWN);
    EXPECT_EQ(board.Run(send), -ENETDOWN);
    EXPECT_EQ(board.transcript(), "\nsend eth1 42 bytes\nerr sendto: Network is down\n");
    EXPECT_EQ(Hex(board.datagrams.front()),
              "ff ff ff ff ff ff 01 02 03 04 05 06 08 06 00 01 08 00 06 04 01 02 "
              "01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14");
}

TEST_F(TevArp, NeedsThreeArguments)
{
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"/bin/tev_arp"},
          {"tev_arp", "eth0", "192.0.2.9"},
          {"tev_arp", "eth0", "192.0.2.9", "1000", "more"}}) {
        FakeBoard other;
        EXPECT_EQ(other.Start(words), FakeBoard::kExited + 255);
        EXPECT_EQ(other.transcript(), "\nerr tev_arp: bad option\nerr Usage: tev_arp ifname IP\n");
    }
    // A conflict is no matter of the exit status.
    board.ethernet.arrivals = {{kConflict}};
    EXPECT_EQ(board.Start({"tev_arp", "eth0", "192.0.2.9", "1000"}), 0);
}
