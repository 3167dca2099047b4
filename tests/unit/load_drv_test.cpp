#include "tests/fake_board.h"

namespace
{

/// The commands, by the short names of the modules and register settings.
std::string Commands(const std::string &names)
{
    const std::map<std::string, std::string> modules{
        {"reg", "/dvs/Hi3512reg.ko"},         {"9910", "/dvs/extdrv/tw_9910.ko"},
        {"2864", "/dvs/extdrv/tw_2864.ko"},   {"tlv", "/dvs/extdrv/tlv_320.ko"},
        {"ise", "/dvs/extdrv/ise_2010.ko"},   {"rtc", "/dvs/extdrv/ds_1339.ko"},
        {"sensor", "/dvs/extdrv/ov_2643.ko"}, {"gv", "/dvs/extdrv/gv_7601.ko"},
        {"usb", "/dvs/extdrv/hiusb.ko"},
    };
    std::string lines = "\n";
    std::istringstream words{names};
    for (std::string word; words >> word;) {
        // A register setting is "c:ADDRESS:BITS" or "s:ADDRESS:BITS".
        lines += modules.contains(word) ? "sh /sbin/insmod " + modules.at(word) + "\n"
                                        : "sh /bin/reg -" + word.substr(0, 1) + " 0x" +
                                              word.substr(2, 8) + " 0x" + word.substr(11) + "\n";
    }
    return lines;
}

} // namespace

TEST(LoadDrv, RunsThePlanOfTheModel)
{
    const std::string common = "c:20110094:00000001 c:20110270:00000004 rtc ";
    const std::map<std::string, std::string> plans{
        {"VM02", "reg 2864 ise"},
        {"VM03", "reg 2864 ise"},
        {"VM04", "reg 2864 ise"},
        {"VM10", "reg 9910"},
        {"VM23", "reg 2864 ise"},
        {"VM28", "reg tlv sensor"},
        {"VM34", common + "tlv"},
        {"VM35", common + "tlv"},
        {"VM36", common + "tlv"},
        {"VM37", common + "2864"},
        {"VM38", "reg 2864 ise usb"},
        {"VM39", "reg 9910 tlv"},
        {"VM40", "reg tlv sensor rtc"},
        {"VM41", "reg"},
        {"VM42", common + "s:200F009C:01 s:20150400:04 c:20150010:04 s:200F00A0:01 s:20150400:08 "
                          "c:20150020:08 c:200F00A4:01 s:20150400:10 c:20150040:10 gv tlv"},
        {"VM43", "reg 9910 tlv rtc"},
        {"VM44", "reg 9910 tlv c:101E0020:00100000 s:101E5400:00000002 c:101E5008:00000002"},
        {"VM46", common + "tlv"},
        {"VM53", "reg 9910 tlv ise usb"},
    };
    const std::string others = "reg 9910 tlv ise";
    std::vector<std::string> models{"", "vm42", "VM3", "VM380", "VM370", "VM99", "VM10 VM10"};
    for (int i = 1; i <= 54; ++i) {
        models.push_back((i < 10 ? "VM0" : "VM") + std::to_string(i));
    }
    for (const std::string &model : models) {
        FakeBoard board;
        board.Write("/etc/cam_model.conf", "cam_model=" + model + "\n");
        EXPECT_EQ(board.Start({"load_drv", "ignored"}), 0);
        const auto plan = plans.find(model);
        EXPECT_EQ(board.transcript(), Commands(plan != plans.end() ? plan->second : others))
            << model;
    }
    FakeBoard board; // without the file
    board.Start({"load_drv"});
    EXPECT_EQ(board.transcript(), Commands(others));
}
