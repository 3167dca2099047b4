// The devices of the board: flash partitions and the watchdog.
#include <fcntl.h>
#include <linux/watchdog.h>
#include <mtd/mtd-user.h>
#include <poll.h>
#include <sys/ioctl.h>

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
