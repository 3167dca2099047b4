// xgpio, xi2c and the access layers under them.
#include <fcntl.h>

#include <span>

#include "hwtest/gpio_i2c.h"
#include "tests/fake_board.h"

namespace
{

struct FakeDriver : FakeDevice {
    int Request(OpenFile &file, unsigned long request, void *argument) override
    {
        const auto *words = static_cast<const uint32_t *>(argument);
        char line[40];
        std::snprintf(line, sizeof line, word_count == 2 ? "io %lu %x %x" : "io %lu %x", request,
                      words[0], word_count == 2 ? words[1] : 0);
        FakeBoard::Active()->Record(line);
        return file.flags == O_RDWR ? answer : -1;
    }

    int word_count = 0;
    int answer = 0;
};

/// A command, what the drivers answer, and all that the program does.
using Case = std::tuple<std::vector<std::string>, int, std::string>;

void CheckTranscripts(std::span<const Case> cases, int status = 0)
{
    for (const auto &[words, answer, expected] : cases) {
        FakeBoard board;
        FakeDriver registers, bus;
        registers.word_count = 2;
        registers.answer = bus.answer = answer;
        board.devices = {{"/dev/misc/hi3512_reg", &registers}, {"/dev/misc/misc_gpio", &bus}};
        EXPECT_EQ(board.Start(words), status);
        EXPECT_EQ(board.transcript(), "\n" + expected) << testing::PrintToString(words);
    }
}

} // namespace

TEST(Gpio, IsReadAndDriven)
{
    const Case cases[] = {
        {{"xgpio", "0", "0"}, 1, "io 2 101e4400 1\nio 3 101e4004 1\nout 1 \n"},
        {{"xgpio", "3", "7"}, 128, "io 2 101e7400 80\nio 3 101e7200 80\nout 1 \n"},
        {{"xgpio", "4", "2", "1"}, 0, "io 1 101f7400 4\nio 1 101f7010 4\n"},
        {{"xgpio", "5", "4", "0"}, 0, "io 1 101f8400 10\nio 2 101f8040 10\n"},
        {{"xgpio", "7", "1", "-1"}, 0, "io 1 101fa400 2\nio 1 101fa008 2\n"},
        // All the pins with another function, and in between one without.
        {{"xgpio", "0", "2"}, 4, "io 2 101e0020 20\nio 2 101e4400 4\nio 3 101e4010 4\nout 1 \n"},
        {{"xgpio", "0", "4", "0"}, 0, "io 2 101e0020 20\nio 1 101e4400 10\nio 2 101e4040 10\n"},
        {{"xgpio", "1", "1", "5"}, 0, "io 2 101e0020 100000\nio 1 101e5400 2\nio 1 101e5008 2\n"},
        {{"xgpio", "1", "7", "0"}, 0, "io 2 101e0020 2000\nio 1 101e5400 80\nio 2 101e5200 80\n"},
        {{"xgpio", "2", "0", "1"}, 0, "io 2 101e0020 2000\nio 1 101e6400 1\nio 1 101e6004 1\n"},
        {{"xgpio", "2", "1", "1"}, 0, "io 1 101e6400 2\nio 1 101e6008 2\n"},
        {{"xgpio", "2", "3", "1"}, 0, "io 1 101e0020 20000\nio 1 101e6400 8\nio 1 101e6020 8\n"},
        {{"xgpio", "6", "0", "1"}, 0, "io 2 101e0020 400\nio 1 101f9400 1\nio 1 101f9004 1\n"},
        {{"xgpio", "6", "1", "1"}, 0, "io 2 101e0020 400\nio 1 101f9400 2\nio 1 101f9008 2\n"},
        {{"xgpio", "7", "4"}, 16, "io 1 101e0020 10\nio 2 101fa400 10\nio 3 101fa040 10\nout 1 \n"},
        {{"xgpio", "7", "5", "1"}, 0, "io 2 101e0020 400\nio 1 101fa400 20\nio 1 101fa080 20\n"},
        {{"xgpio", "7", "6", "1"}, 0, "io 2 101e0020 400\nio 1 101fa400 40\nio 1 101fa100 40\n"},
        // Pins and groups that there are not, numbers that are none, a driver that fails.
        {{"xgpio", "3", "8"}, 0, "io 2 101e7400 100\nio 3 101e7400 100\nout 0 \n"},
        {{"xgpio", "3", "29"}, 0, "io 2 101e7400 20000000\nio 3 901e7000 20000000\nout 0 \n"},
        {{"xgpio", "3", "31", "1"}, 0, "io 1 101e7400 80000000\nio 1 101e7000 80000000\n"},
        {{"xgpio", "3", "32"}, 0, "io 2 101e7400 0\nio 3 101e7000 0\nout 0 \n"},
        {{"xgpio", "3", "-1", "0"}, 0, "io 1 101e7400 0\nio 2 101e7000 0\n"},
        {{"xgpio", "9", "0"}, 0, "out Error : get '-1'\n"},
        {{"xgpio", "8", "4"}, 0, "out Error : get '-1'\n"},
        {{"xgpio", "-1", "4", "1"}, 0, ""},
        {{"xgpio", "x", " 6up", "on"}, 0, "io 1 101e4400 40\nio 2 101e4100 40\n"},
        {{"xgpio", "3", "6"}, -5, "io 2 101e7400 40\nio 3 101e7100 40\nout Error : get '-5'\n"},
    };
    CheckTranscripts(cases);
}

TEST(GpioI2c, IsReadAndWritten)
{
    const Case cases[] = {
        {{"xi2c", "0x40", "010"}, 0x5, "io 36 400800\nout 0x05\n"},
        {{"xgpioi2c", "64", "8"}, 0xAB, "io 36 400800\nout 0xAB\n"},
        {{"xi2c", "0x140", "0x1ff", "0x1ab"}, 0, "io 35 40ffab\n"},
        {{"xgpioi2c", "0X40", "-2", "4294967297"}, 0, "io 35 40feff\n"},
        {{"xi2c", "x40", "", "9 volts"}, 0, "io 35 9\n"},
        // What is above the byte, and a driver that fails.
        {{"xi2c", "1", "2"}, 0x1234, "io 36 10200\nout 0x34\n"},
        {{"xi2c", "1", "2"}, -1, "io 36 10200\nout 0xFF\n"},
        {{"xi2c", "1", "2", "3"}, -1, "io 35 10203\n"},
    };
    CheckTranscripts(cases);
}

TEST(GpioAndI2c, ShowTheirUsage)
{
    const std::string gpio = "out Usage : \n"
                             "out     GET : xgpio  group_no  bit_no \n"
                             "out     SET : xgpio  group_no  bit_no  0/1 \n";
    const std::string i2c = "out Usage : \n"
                            "out     GET : xi2c  device_addr  reg_addr \n"
                            "out     SET : xi2c  device_addr  reg_addr  reg_value \n";
    const Case cases[] = {
        {{"xgpio"}, 0, gpio}, {{"xgpio", "1"}, 0, gpio}, {{"xgpio", "1", "2", "1", "0"}, 0, gpio},
        {{"xi2c"}, 0, i2c},   {{"xi2c", "1"}, 0, i2c},   {{"xi2c", "1", "2", "3", "4"}, 0, i2c},
    };
    CheckTranscripts(cases, 0);
}

TEST(GpioAndI2c, GoOnWithoutTheirDrivers)
{
    FakeBoard board;
    board.Start({"xgpio", "7", "4"});
    board.Start({"xgpio", "7", "4", "1"});
    board.Start({"xgpioi2c", "7", "4"});
    board.Start({"xi2c", "7", "4", "1"});
    EXPECT_EQ(board.Run(write_gpioi2c, -7, 1U, 2U, 3U), 42); // the length of the message
    EXPECT_EQ(board.transcript(), R"(
out Error : open_gpio can not open '/dev/misc/hi3512_reg'
out Error : get_gpio Invalid handle '-1'
out Error : get '-1'
out Error : open_gpio can not open '/dev/misc/hi3512_reg'
out Error : set_gpio Invalid handle '-1'
out Error : open_gpioi2c can not open '/dev/misc/misc_gpio'
out Error : read_gpioi2c Invalid handle '-1'
out 0xFFFFFFFF
out Error : open_gpioi2c can not open '/dev/misc/misc_gpio'
out Error : write_gpioi2c Invalid handle '-1'
out Error : write_gpioi2c Invalid handle '-7'
)");
}
