// Frames that tev_arp receives, and its verdict on them.
//
// Input: for each event a byte, below 0x40 the length of the frame that follows; above, a moment
// without a frame (0x40), an error (0x41) or an event that is neither (any other).
#include <net/if.h>
#include <poll.h>

#include <algorithm>

#include "tests/fuzz/fuzz.h"

AppletHandler tev_arp;

namespace
{

using namespace std::string_literals;

const std::string kOwnMac = "\x02\0\0\0\0\x01"s;
const std::string kWanted = "\xc0\0\x02\x09"s; // 192.0.2.9
constexpr int kTimeout = 30;                   // milliseconds

struct Event {
    short what; ///< as poll tells it
    std::string frame;
};

std::deque<Event> EventsIn(const std::string &input)
{
    std::deque<Event> events;
    for (size_t at = 0; at < input.size();) {
        const auto code = static_cast<uint8_t>(input[at++]);
        if (code < 0x40) {
            events.push_back({POLLIN, input.substr(at, code)});
            at += events.back().frame.size();
        } else {
            const short rare = code == 0x41 ? POLLERR : POLLHUP;
            events.push_back({code == 0x40 ? short{0} : rare, ""});
        }
    }
    return events;
}

struct Ethernet : FakeDevice {
    int Request(OpenFile & /*file*/, unsigned long /*request*/, void *argument) override
    {
        kOwnMac.copy(static_cast<ifreq *>(argument)->ifr_hwaddr.sa_data, kOwnMac.size());
        return 0;
    }
    short Poll(int timeout) override
    {
        const short what = events.empty() ? short{0} : events.front().what;
        FakeBoard::Active()->clock += int64_t{timeout} * 1000; // whatever comes
        if (what != POLLIN && !events.empty()) {
            events.pop_front();
        }
        return what;
    }
    ssize_t Read(OpenFile & /*file*/, void *buffer, size_t count) override
    {
        const size_t taken = events.front().frame.copy(static_cast<char *>(buffer), count);
        events.pop_front();
        return static_cast<ssize_t>(taken);
    }

    std::deque<Event> events;
};

/// The handler's result after these events.
int Verdict(const std::deque<Event> &events)
{
    int milliseconds = 0;
    for (Event event : events) {
        ++milliseconds;
        if (event.what == POLLERR) {
            return -1;
        }
        if (event.what == POLLHUP) {
            continue;
        }
        if (event.what == POLLIN) {
            event.frame.resize(42, '\0');
            const auto field = [&](size_t at, size_t size) { return event.frame.substr(at, size); };
            const bool is_request = field(20, 2) == "\0\1"s;
            if (field(12, 2) != "\x08\x06" || (!is_request && field(20, 2) != "\0\2"s)) {
                continue;
            }
            if ((field(28, 4) == kWanted && field(22, 6) != kOwnMac) ||
                (is_request && field(38, 4) == kWanted && field(32, 6) != kOwnMac)) {
                return -1;
            }
        }
        if (milliseconds >= kTimeout) {
            return 0;
        }
    }
    return 0;
}

} // namespace

void Fuzz(const std::string &input)
{
    Ethernet ethernet;
    ethernet.events = EventsIn(input);
    const int verdict = Verdict(ethernet.events);
    FakeBoard board;
    board.devices[kPacketSocket] = &ethernet;
    EXPECT_EQ(board.Start({"tev_arp", "eth0", "192.0.2.9", std::to_string(kTimeout)}, tev_arp),
              verdict);
    EXPECT_EQ(board.transcript({"send"}), "\nsend eth0 42 bytes\n");
}
