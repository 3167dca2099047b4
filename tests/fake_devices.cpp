// The devices of the board.
#include <fcntl.h>
#include <linux/serial.h>
#include <linux/watchdog.h>
#include <mtd/mtd-user.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/fake_board.h"

namespace
{

void Record(const std::string &line, size_t bytes = 0)
{
    FakeBoard::Active()->Record(line, bytes);
}

int FailWith(int error)
{
    errno = error;
    return -1;
}

/// Every byte that the kernel gets and that is not zero, behind its offset. The modes for input,
/// output, control and local matters are at 0, 4, 8 and 12, VTIME and VMIN at 22 and 23; the C
/// library's record is longer.
std::string SettingsText(const termios &settings)
{
    std::string text;
    for (size_t i = 0; i < 36; ++i) {
        const std::string byte{reinterpret_cast<const char *>(&settings)[i]};
        text += byte[0] != 0 ? " " + std::to_string(i) + ":" + Hex(byte) : "";
    }
    return text;
}

} // namespace

ssize_t FakeDevice::Read(OpenFile & /*file*/, void * /*buffer*/, size_t /*count*/)
{
    return FailWith(EINVAL);
}

ssize_t FakeDevice::Write(OpenFile & /*file*/, const void * /*buffer*/, size_t /*count*/)
{
    return FailWith(EINVAL);
}

int FakeDevice::Request(OpenFile & /*file*/, unsigned long /*request*/, void * /*argument*/)
{
    return FailWith(ENOTTY);
}

short FakeDevice::Poll(int /*timeout*/)
{
    return POLLIN;
}

ssize_t FakeMtd::Read(OpenFile &file, void *buffer, size_t count)
{
    count = std::min({count, bytes.size() - file.position, transfer});
    std::memcpy(buffer, &bytes[file.position], count);
    file.position += count;
    Record("read " + file.path, count);
    return static_cast<ssize_t>(count);
}

ssize_t FakeMtd::Write(OpenFile &file, const void *buffer, size_t count)
{
    if (file.position == bytes.size()) {
        return FailWith(ENOSPC);
    }
    const auto *data = static_cast<const uint8_t *>(buffer);
    count = std::min({count, bytes.size() - file.position, transfer});
    if (bad.unwritable_block.Shows(file.position / kBlock)) {
        return FailWith(EIO);
    }
    for (size_t i = 0; i < count; ++i, ++file.position) {
        bytes[file.position] &= data[i];
        bytes[file.position] |= uint8_t{bad.stuck_byte.Shows(file.position)};
        bytes[file.position] ^= uint8_t{bad.flipping_byte.Shows(file.position)};
    }
    Record("write " + file.path, count);
    return static_cast<ssize_t>(count);
}

int FakeMtd::Request(OpenFile &file, unsigned long request, void *argument)
{
    if (request == MEMGETINFO) {
        auto *info = static_cast<mtd_info_user *>(argument);
        info->size = static_cast<uint32_t>(bytes.size());
        info->erasesize = kBlock;
        return 0;
    }
    if (request != MEMERASE) {
        return FailWith(ENOTTY);
    }
    const auto *block = static_cast<erase_info_user *>(argument);
    Record("erase " + file.path);
    if (block->length != kBlock || (file.flags & O_ACCMODE) != O_RDWR ||
        bad.unerasable_block.Shows(block->start / kBlock)) {
        return FailWith(EIO);
    }
    std::fill_n(bytes.begin() + block->start, block->length, uint8_t{0xFF});
    return 0;
}

ssize_t FakeWatchdog::Write(OpenFile & /*file*/, const void *buffer, size_t count)
{
    Record("watchdog write " + Hex({static_cast<const char *>(buffer), count}));
    return static_cast<ssize_t>(count);
}

int FakeWatchdog::Request(OpenFile & /*file*/, unsigned long request, void *argument)
{
    auto *value = static_cast<int *>(argument);
    if (request == WDIOC_SETTIMEOUT) {
        Record("watchdog set " + std::to_string(*value));
    } else if (request == WDIOC_GETTIMEOUT) {
        *value = timeout;
    } else {
        return FailWith(ENOTTY);
    }
    return 0;
}

ssize_t FakeEthernet::Read(OpenFile & /*file*/, void *buffer, size_t count)
{
    const size_t taken = arrivals.front().frame.copy(static_cast<char *>(buffer), count);
    arrivals.pop_front();
    return static_cast<ssize_t>(taken);
}

int FakeEthernet::Request(OpenFile & /*file*/, unsigned long request, void *argument)
{
    auto *interface = static_cast<ifreq *>(argument);
    const std::string name{interface->ifr_name, strnlen(interface->ifr_name, IFNAMSIZ)};
    Record("request " + std::to_string(request) + " " + name);
    std::memcpy(interface->ifr_hwaddr.sa_data, kAddress, 6);
    return 0;
}

short FakeEthernet::Poll(int timeout)
{
    const short events = arrivals.empty() ? short{0} : arrivals.front().events;
    FakeBoard::Active()->clock += int64_t{timeout} * 1000; // whatever comes
    if (!arrivals.empty() && (events & POLLIN) == 0) {
        arrivals.pop_front(); // nothing to read
    }
    return events;
}

ssize_t FakeSerialLine::Read(OpenFile & /*file*/, void *buffer, size_t count)
{
    const size_t taken = input.front().copy(static_cast<char *>(buffer), count);
    Record("read " + std::to_string(count) + ":", taken);
    if (input.front().erase(0, taken).empty()) {
        input.pop_front();
    }
    return static_cast<ssize_t>(taken);
}

ssize_t FakeSerialLine::Write(OpenFile &file, const void *buffer, size_t count)
{
    EXPECT_EQ(file.flags, O_RDWR | O_NOCTTY | O_NONBLOCK);
    const std::string frame{static_cast<const char *>(buffer), count};
    Record("write " + Hex(frame));
    FakeBoard::Active()->clock += send_time;
    std::ranges::copy(answer ? answer(frame) : Pieces{}, std::back_inserter(input));
    return static_cast<ssize_t>(count);
}

int FakeSerialLine::Request(OpenFile & /*file*/, unsigned long request, void *argument)
{
    auto *value = static_cast<int *>(argument);
    std::string line = "drain";
    if (request == TCGETS) {
        std::memcpy(argument, &settings, sizeof settings);
        line = "get" + SettingsText(settings);
    } else if (request == TCSETS) {
        std::memcpy(&settings, argument, sizeof settings);
        line = "set" + SettingsText(settings);
    } else if (request == TCFLSH) {
        input.clear();
        line = "flush " + std::to_string(*value);
    } else if (request == TIOCMGET) {
        *value = modem_lines;
        line = "get modem lines";
    } else if (request == TIOCMSET) {
        modem_lines = *value;
        line = "set modem lines " + std::to_string(*value);
    } else if (request == TIOCSERGETLSR) {
        *value = --busy_polls > 0 ? 0 : TIOCSER_TEMT;
        line = "get line status";
    }
    Record(line);
    return 0;
}
