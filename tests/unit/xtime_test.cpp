#include "bringup/rtc.h"
#include "tests/fake_board.h"

namespace
{

/// A clock's driver: answers one request with a time and tells what it was asked.
struct FakeClock : FakeDevice {
    int Request(OpenFile &file, unsigned long number, void *argument) override
    {
        char line[80];
        std::snprintf(line, sizeof line, "%s %lx flags %x", file.path.c_str(), number,
                      static_cast<unsigned>(file.flags));
        FakeBoard::Active()->Record(line);
        const uint32_t time[] = {2009, 3, 7, 5, 4, 9, 6};
        std::copy_n(time, number == 1 ? 6 : 7, static_cast<uint32_t *>(argument));
        return 0;
    }
};

class XTime : public BoardTest
{
protected:
    XTime()
    {
        for (const char *path : {"/dev/misc/hi_rtc", "/dev/ds1339", "/dev/misc/ds1339"}) {
            board.devices[path] = &clock;
        }
    }
    FakeClock clock;
};

} // namespace

TEST_F(XTime, ReadsTheClockThatTheBoardHas)
{
    const std::string soc = "/dev/misc/hi_rtc 801c7009 flags 2";
    const std::string chip = "/dev/misc/ds1339 1 flags 2";
    const std::string other_chip = "/dev/ds1339 1 flags 2";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        // the two configuration files, "" for none
        {"", "", soc},
        {"", "rtc_device_supported=hirtc\n", soc},
        {"", "rtc_device_supported=ds1339\n", chip},
        {"", "rtc_device_supported=DS1339\n", soc},
        {"", "rtc_device_supported=ds1339x\n", soc},
        {"", "rtc_device_supported=\n", soc},
        {"", "other=ds1339\n", chip}, // the last line's value
        {"cam_model=VM01\n", "rtc_device_supported=ds1339\n", chip},
        {"cam_model=VM37\n", "rtc_device_supported=ds1339\n", other_chip},
        {"cam_model=VM46\n", "rtc_device_supported=ds1339\n", other_chip},
        {"cam_model=VM37\n", "", soc},
    };
    for (const auto &[model, capabilities, request] : cases) {
        FakeBoard other;
        other.devices = board.devices;
        for (const auto &[path, text] : {std::pair{"/etc/cam_model.conf", model},
                                         std::pair{"/etc/capabilities.conf", capabilities}}) {
            if (!text.empty()) {
                other.Write(path, text);
            }
        }
        EXPECT_EQ(other.Start({"xtime", "ignored"}), 0);
        EXPECT_EQ(other.transcript(), "\n" + request +
                                          R"(
out )"
                                          "\033[1;32mREAD RTC TIME : 2009/03/07 05:04:09\n"
                                          "out \033[0;39m\\c\n"
                                          "sh date -s 030705042009.09\n")
            << model << capabilities;
    }
}

TEST_F(XTime, SetsNothingWithoutAClock)
{
    board.devices.erase("/dev/misc/hi_rtc");
    EXPECT_EQ(board.Start({"xtime"}), 0);
    EXPECT_EQ(board.transcript(), "\nout \033[1;31mGET RTC ERROR !\nout\nout \033[0;39m\\c\n");
    EXPECT_EQ(board.Run(CRTC_GetTime, static_cast<RtcTime *>(nullptr)), -1);
}

TEST_F(XTime, TakesTheZeroesOfADriverThatRefuses)
{
    board.Fail("ioctl", EIO);
    board.Start({"xtime"});
    EXPECT_EQ(board.transcript({"out \033[1", "sh"}),
              "\nout \033[1;32mREAD RTC TIME : 0000/00/00 00:00:00\nsh date -s 000000000000.00\n");
}
