#include "tests/fake_board.h"

using namespace std::string_literals;

namespace
{

const std::string kGreen = "\033[1;32m";
const std::string kReset = "\033[0;39m";

/// The board's first partition with this environment.
FakeMtd BootPartition(const std::string &environment)
{
    FakeMtd flash;
    flash.bytes.assign(0x40000, 'x');
    flash.bytes.insert(flash.bytes.end(), environment.begin(), environment.end());
    return flash;
}

/// What the applet prints and runs when it has found these.
std::string Shown(const std::string &mac, const std::string &serial, const std::string &product,
                  bool has_mac = true)
{
    // Each line's colour is taken back at the beginning of the next one.
    const std::string line = "out " + kReset + kGreen;
    return "out " + kGreen + "GET BOOT PARAM\n" +
           (has_mac ? "" : line + "    Invalid mac address ... set to default\n") + line +
           "    MAC [" + mac + "]\n" + line + "    SERIAL_NO [" + serial + "]\n" + line +
           "    PRODUCT_CODE [" + product + "]\nout " + kReset + "\\c\n" + "sh echo \"MAC=" + mac +
           "\" > /tmp/p\nsh echo \"SERIAL_NO=" + serial +
           "\" >> /tmp/p\nsh echo \"PRODUCT_CODE=" + product + "\" >> /tmp/p\n";
}

} // namespace

TEST(GetBootParam, FindsItsKeysInTheEnvironment)
{
    const std::string mac = "02:00:00:12:34:56";
    const std::string default_mac = "02:51:56:00:00:00";
    const std::string all = "ethaddr=" + mac + "\0serial_no=1234567890\0product_code=QV-1\0\0"s;
    const std::tuple<std::string, std::string> cases[] = {
        {"CRC!\1" + all, Shown(mac, "1234567890", "QV-1")},
        {"product_code=\0serial_no=\0ethaddr="s + mac + "more\0"s, Shown(mac, "", "")},
        {"serial_no=12345678901\0"s, Shown(default_mac, "1234567890", "", false)},
        {"ethaddr=\0product_code=%n%s%d%%5%\0"s, Shown(default_mac, "", "%n%s%d%5%", false)},
        // A byte that breaks a match begins no new one.
        {"eethaddr=" + mac + "\0"s, Shown(default_mac, "", "", false)},
        {"ethethaddr=" + mac + "\0bserial_no=7\0"s, Shown(default_mac, "7", "", false)},
        // The window ends after 512 bytes, the value's end included.
        {std::string(512 - 18, '.') + "product_code=abcd\0"s,
         Shown(default_mac, "", "abcd", false)},
        {std::string(512 - 17, '.') + "product_code=abcd\0"s, Shown(default_mac, "", "", false)},
        {"product_code=" + std::string(400, 'p') + "\0"s,
         Shown(default_mac, "", std::string(255, 'p'), false)},
        {"product_code=" + std::string(400, '%') + "\0"s,
         Shown(default_mac, "", std::string(128, '%'), false)},
    };
    for (const auto &[environment, shown] : cases) {
        FakeBoard board;
        FakeMtd flash = BootPartition(environment + std::string(512, '.'));
        board.devices["/dev/mtd/0"] = &flash;
        EXPECT_EQ(board.Start({"get_boot_param", "/tmp/p"}), 0);
        EXPECT_EQ(board.transcript({"out", "sh"}), "\n" + shown);
    }
}

TEST(GetBootParam, SaysWhatItLacks)
{
    FakeBoard board;
    board.Start({"get_boot_param", std::string(1000, 'f')}); // no device; a path too long for one
    FakeMtd flash = BootPartition("ethaddr=");               // ends within the value
    board.devices["/dev/mtd/0"] = &flash;
    board.Start({"get_boot_param", "/tmp/p"});
    EXPECT_EQ(board.transcript({"out err", "out read", "sh"}),
              "\nout err dev file x3\nout read err!read err!read err!" + kGreen +
                  "GET BOOT PARAM\nsh echo \"MAC=02:51:56:00:00:00\" > /tmp/p\n"
                  "sh echo \"SERIAL_NO=\" >> /tmp/p\nsh echo \"PRODUCT_CODE=\" >> /tmp/p\n");
    FakeBoard other;
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"get_boot_param"}, {"get_boot_param", "a", "b"}}) {
        EXPECT_EQ(other.Start(words), 0);
    }
    const auto error = [](int count) {
        return "out \033[1;31m[GET_BOOT_PARAM] ERROR ! argc is " + std::to_string(count) +
               "\nout\nout \033[0;39m\\c\n";
    };
    EXPECT_EQ(other.transcript(), "\n" + error(1) + error(3));
}
