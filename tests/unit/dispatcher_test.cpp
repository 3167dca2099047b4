#include "tests/fake_board.h"

#include <regex>

TEST(Dispatcher, ListsItsAppletsUnderAnyOtherName)
{
    const std::regex listing{R"(
out QVE ver\. 1\.0\.0 \(\d{4}\.\d\d\.\d\d-\d\d:\d\d\+0000\) multi-call binary
out usage : \[function\] \[arguments\]\.\.\.
out
out currently defined functions:
out tev_arp, load_drv, get_boot_param, init_upgrade, upgrade, xupgrade, xfactorydefault, xbootenv, )"
                             "xgpio, xi2c, xgpioi2c, xkill, xtime, test_dio, test_led, test_rs485, "
                             "test_rs232, test_sdcard, test_usb, test_key, test_rtc, "
                             "test_send_watchdog, test_audio, get_cb_cam_info\n"};
    for (const std::vector<std::string> &words : {std::vector<std::string>{},
                                                  {"XKILL"},
                                                  {"xkill2"},
                                                  {"xkil"},
                                                  {"/bin/"},
                                                  {""},
                                                  {"xkill/", "sh"}}) {
        FakeBoard board;
        EXPECT_EQ(board.Start(words), 0);
        EXPECT_TRUE(std::regex_match(board.transcript(), listing)) << board.transcript();
    }
}

TEST(Dispatcher, StartsTheAppletUnderItsBareName)
{
    for (const char *name : {"xupgrade", "./xupgrade", "/usr/sbin/xupgrade", "//xupgrade"}) {
        FakeBoard board;
        board.Start({name, "-h"});
        EXPECT_EQ(board.transcript({"out '"}), "\nout 'xupgrade' usage : \n") << name;
    }
}

TEST(Dispatcher, HasAppletsThatDoNothing)
{
    for (const char *name : {"init_upgrade", "xbootenv", "test_dio", "test_led", "test_key",
                             "test_rtc", "test_audio"}) {
        FakeBoard board;
        EXPECT_EQ(board.Start({name, "-x"}), 0);
        EXPECT_EQ(board.transcript(), "\n") << name;
    }
}
