#include "flash/mtd.h"

#include <fcntl.h>
#include <unistd.h>

#include "tests/fake_board.h"

namespace
{

constexpr const char *kDevice = "/dev/mtd/1";

class Mtd : public BoardTest
{
protected:
    int NWrite(int offset, int size)
    {
        return board.Run(CFlash_NWrite, "/tmp/a", kDevice, offset, size);
    }
    int Confirm(int offset, int size)
    {
        return board.Run(CFlash_Confirm, "/tmp/a", kDevice, offset, size);
    }
    std::string Contents(size_t size)
    {
        return {flash.bytes.begin(), flash.bytes.begin() + static_cast<ptrdiff_t>(size)};
    }

    FakeMtd &flash = board.mtd[kDevice];
};

} // namespace

TEST_F(Mtd, IsErasedBlockByBlockPastOneThatFails)
{
    flash.bad.unerasable_block.place = 2;
    EXPECT_EQ(board.Run(CFlash_Erase, kDevice), 0);
    EXPECT_EQ(board.transcript(), R"(
syslog alert [CFlash_Erase] =================> [/dev/mtd/1]\n
erase /dev/mtd/1 x3
err
err /dev/mtd/1: MTD Erase failure: Input/output error
syslog alert     [CFlash_Erase] MTD Erase failure [/dev/mtd/1]\n
erase /dev/mtd/1
)");
    const std::string block(FakeMtd::kBlock, '\xff');
    EXPECT_EQ(Contents(flash.bytes.size()), block + block + std::string(4096, 'U') + block);
}

TEST_F(Mtd, CannotBeErased)
{
    board.Fail("open", EBUSY);
    EXPECT_EQ(board.Run(CFlash_Erase, kDevice), -1);
    board.Fail("ioctl", EINVAL);
    EXPECT_EQ(board.Run(CFlash_Erase, kDevice), -1);
    EXPECT_EQ(board.transcript(), R"(
syslog alert [CFlash_Erase] =================> [/dev/mtd/1]\n
err /dev/mtd/1: Device or resource busy
syslog alert     [CFlash_Erase] open [/dev/mtd/1]\n
syslog alert [CFlash_Erase] =================> [/dev/mtd/1]\n
err /dev/mtd/1: unable to get MTD device info
syslog alert     [CFlash_Erase] unable to get MTD device info [/dev/mtd/1]\n
)");
}

TEST_F(Mtd, TakesARegionAndIsComparedWithIt)
{
    std::string region;
    for (int i = 0; i < 1100; ++i) {
        region += static_cast<char>(i * 7 + i / 256);
    }
    board.Write("/tmp/a", "in front of it" + region + "behind it");
    flash.bytes.assign(8192, 0xFF);
    flash.transfer = 300; // of pieces of 512
    EXPECT_EQ(NWrite(14, 1100), 0);
    EXPECT_EQ(Confirm(14, 1100), 0);
    EXPECT_EQ(board.transcript(), R"(
sleep 1
syslog alert [CFlash_NWrite] offset : 14, size : 1100
write /dev/mtd/1 1100 bytes x5
sleep 1
syslog alert [CFlash_Confirm] offset : 14, size : 1100
read /dev/mtd/1 1100 bytes x5
)");
    EXPECT_EQ(Contents(1102), region + "\xff\xff");
}

TEST_F(Mtd, HasNothingToDoForASizeOfZeroOrAShortSource)
{
    board.Write("/tmp/a", std::string(20, 'U'));
    for (const auto &[offset, size] : {std::pair{0, 0}, {0, -5}, {20, 600}, {14, 600}}) {
        EXPECT_EQ(NWrite(offset, size), 0);
        EXPECT_EQ(Confirm(offset, size), 0);
    }
    EXPECT_EQ(board.transcript({"write", "read", "out", "err"}), R"(
write /dev/mtd/1 6 bytes
read /dev/mtd/1 6 bytes
)");
}

TEST_F(Mtd, SaysWhereWritingAndComparingFailed)
{
    const std::tuple<std::string, std::string, int, int, std::string> cases[] = {
        {"", "", 0, -1, "fseek : /tmp/a : Invalid argument\n"},
        {"fopen", "/tmp/a", 1, 0, "fseek : /tmp/a : Input/output error\n"},
        {"open", kDevice, 1, 0, "open : /dev/mtd/1 : Input/output error\n"},
        {"fread", "/tmp/a", 1, 0, "fread : /tmp/a : Input/output error\n"},
        {"write", kDevice, 2, 0, "full_write : /dev/mtd/1 : Input/output error\n"},
        {"read", kDevice, 2, 0, "full_write : /dev/mtd/1 : Input/output error\n"},
    };
    for (const auto &[function, path, nth, offset, line] : cases) {
        for (const bool writes : {true, false}) {
            if (function == (writes ? "read" : "write")) {
                continue;
            }
            FakeBoard other;
            other.Write("/tmp/a", std::string(1000, 'U'));
            other.Fail(function, EIO, nth, path);
            EXPECT_EQ(
                other.Run(writes ? CFlash_NWrite : CFlash_Confirm, "/tmp/a", kDevice, offset, 1000),
                -1);
            const std::string name = writes ? "[CFlash_NWrite] " : "[CFlash_Confirm] ";
            EXPECT_EQ(other.transcript({"syslog", "out", "err"}),
                      "\nsyslog alert " + name + "offset : " + std::to_string(offset) +
                          ", size : 1000\nsyslog alert " + name + line + "out " + name + line);
        }
    }
}

TEST_F(Mtd, DiffersInOneByte)
{
    board.Write("/tmp/a", std::string(999, 'U'));
    flash.bytes[999] = 0; // beyond the region
    EXPECT_EQ(Confirm(0, 999), 0);
    for (const size_t byte : {size_t{998}, size_t{512}, size_t{511}}) {
        flash.bytes[byte] ^= 0x10;
        EXPECT_EQ(Confirm(0, 999), -1);
    }
    EXPECT_EQ(board.transcript({"read", "out", "syslog alert [CFlash_Confirm] c"}), R"(
read /dev/mtd/1 999 bytes x2
read /dev/mtd/1 999 bytes x2
out [CFlash_Confirm] cmp error : /dev/mtd/1 : State not recoverable
read /dev/mtd/1 999 bytes x2
out [CFlash_Confirm] cmp error : /dev/mtd/1 : State not recoverable
read /dev/mtd/1 512 bytes
out [CFlash_Confirm] cmp error : /dev/mtd/1 : State not recoverable
)");
}

TEST_F(Mtd, NeedsBothPaths)
{
    const char *const kNone = nullptr;
    EXPECT_EQ(board.Run(CFlash_NWrite, kNone, kDevice, 0, 4), -1);
    EXPECT_EQ(board.Run(CFlash_Confirm, "/tmp/a", kNone, 0, 4), -1);
    EXPECT_EQ(board.transcript(), "\nsleep 1\nsleep 1\n");
}

TEST_F(Mtd, IsReadAndWrittenUntilAllIsDone)
{
    flash.transfer = 3;
    board.Fail("write", 0, 2); // no bytes are no error
    board.Fail("read", 0, 1);
    std::string back(10, '\0');
    board.Run([&] {
        const int fd = open(kDevice, O_RDWR);
        EXPECT_EQ(full_write(fd, "DAUP@EUAQ@", 10), 10);
        EXPECT_EQ(full_write(fd, "x", 0), 0);
        EXPECT_EQ(full_write(fd, "x", -1), 0);
        close(fd);
        const int again = open(kDevice, O_RDWR);
        EXPECT_EQ(full_read(again, back.data(), 10), 10);
        EXPECT_EQ(full_read(again, back.data(), 0), 0);
        return close(again);
    });
    EXPECT_EQ(back, "DAUP@EUAQ@");
    EXPECT_EQ(full_write(-1, "x", 1), -1);
    EXPECT_EQ(full_read(-1, back.data(), 1), -1);
}
