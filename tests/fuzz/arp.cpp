// Frames that tev_arp receives, and its verdict on them.
//
// Input: for each event a byte, below 0x40 the length of the frame that follows; above, a moment
// without a frame (0x40), an error (0x41) or an event that is neither (any other).
#include <algorithm>

#include "tests/fuzz/fuzz.h"

AppletHandler tev_arp;

namespace
{

using namespace std::string_literals;

const std::string kOwnMac = "\x02\0\0\0\0\x01"s;
const std::string kWanted = "\xc0\0\x02\x09"s; // 192.0.2.9
constexpr int kTimeout = 30;                   // milliseconds

std::deque<FakeEthernet::Arrival> ArrivalsIn(const std::string &input)
{
    std::deque<FakeEthernet::Arrival> arrivals;
    for (size_t at = 0; at < input.size();) {
        const auto code = static_cast<uint8_t>(input[at++]);
        if (code < 0x40) {
            arrivals.push_back({input.substr(at, code)});
            at += arrivals.back().frame.size();
        } else {
            const short rare = code == 0x41 ? POLLERR : POLLHUP;
            arrivals.push_back({"", code == 0x40 ? short{0} : rare});
        }
    }
    return arrivals;
}

/// The handler's result.
int Verdict(const std::deque<FakeEthernet::Arrival> &arrivals)
{
    int milliseconds = 0;
    for (auto [frame, events] : arrivals) {
        ++milliseconds;
        if (events == POLLERR) {
            return -1;
        }
        if (events == POLLHUP) {
            continue;
        }
        if (events == POLLIN) {
            frame.resize(42, '\0');
            const auto field = [text = frame](size_t at, size_t size) {
                return text.substr(at, size);
            };
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
    FakeBoard board;
    board.ethernet.arrivals = ArrivalsIn(input);
    const int verdict = Verdict(board.ethernet.arrivals);
    EXPECT_EQ(board.Start({"tev_arp", "eth0", "192.0.2.9", std::to_string(kTimeout)}, tev_arp),
              verdict);
    EXPECT_EQ(board.transcript({"send"}), "\nsend eth0 42 bytes\n");
}
