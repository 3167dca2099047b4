// The devices of the board: flash partitions and the watchdog.
#include <fcntl.h>
#include <linux/watchdog.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/fake_board.h"

bool FakeBoard::IsDevice(const std::string &path) const
{
    return mtd.contains(path) || (path == "/dev/misc/watchdog" && watchdog_timeout > 0);
}

std::string FakeBoard::PathOf(int fd) const
{
    const auto file = open_files.find(fd);
    return file != open_files.end() ? file->second.path : "";
}

ssize_t FakeBoard::ReadDevice(int fd, void *buffer, size_t count)
{
    OpenFile &file = open_files[fd];
    const FakeMtd &flash = mtd.at(file.path);
    count = std::min({count, flash.bytes.size() - file.position, flash.transfer});
    std::memcpy(buffer, &flash.bytes[file.position], count);
    file.position += count;
    Record("read " + file.path, count);
    return static_cast<ssize_t>(count);
}

ssize_t FakeBoard::WriteDevice(int fd, const void *buffer, size_t count)
{
    OpenFile &file = open_files[fd];
    const std::string data{static_cast<const char *>(buffer), count};
    if (!mtd.contains(file.path)) {
        Record("watchdog write " + Hex(data));
        return static_cast<ssize_t>(count);
    }
    FakeMtd &flash = mtd[file.path];
    count = std::min({count, flash.bytes.size() - file.position, flash.transfer});
    for (size_t i = 0; i < count; ++i, ++file.position) {
        const bool is_stuck = static_cast<int>(file.position) == flash.stuck_byte;
        flash.bytes[file.position] &= static_cast<uint8_t>(data[i]);
        flash.bytes[file.position] |= is_stuck ? 1 : 0;
    }
    Record("write " + file.path, count);
    return static_cast<ssize_t>(count);
}

int FakeBoard::RequestDevice(int fd, unsigned long request, void *argument)
{
    const OpenFile &file = open_files[fd];
    auto *value = static_cast<int *>(argument);
    if (request == WDIOC_SETTIMEOUT) {
        Record("watchdog set " + std::to_string(*value));
    } else if (request == WDIOC_GETTIMEOUT) {
        *value = watchdog_timeout;
    } else if (request == MEMGETINFO) {
        auto *info = static_cast<mtd_info_user *>(argument);
        info->size = static_cast<uint32_t>(mtd.at(file.path).bytes.size());
        info->erasesize = FakeMtd::kBlock;
    } else if (request == MEMERASE) {
        const auto *block = static_cast<erase_info_user *>(argument);
        FakeMtd &flash = mtd.at(file.path);
        Record("erase " + file.path);
        if (block->length != FakeMtd::kBlock || (file.flags & O_ACCMODE) != O_RDWR ||
            block->start == FakeMtd::kBlock * static_cast<uint32_t>(flash.failing_block)) {
            errno = EIO;
            return -1;
        }
        std::fill_n(flash.bytes.begin() + block->start, block->length, uint8_t{0xFF});
    }
    return 0;
}
