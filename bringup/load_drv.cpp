// load_drv: loads the kernel modules and sets the registers that the board's model needs.

#include <cstddef>
#include <span>
#include <string_view>

#include "bringup/applets.h"
#include "bringup/model.h"
#include "util/shell.h"

namespace
{

constexpr const char *kHi3512Reg = "/sbin/insmod /dvs/Hi3512reg.ko";
constexpr const char *kTw9910 = "/sbin/insmod /dvs/extdrv/tw_9910.ko"; // video decoder
constexpr const char *kTw2864 = "/sbin/insmod /dvs/extdrv/tw_2864.ko"; // the one with four inputs
constexpr const char *kGv7601 = "/sbin/insmod /dvs/extdrv/gv_7601.ko";
constexpr const char *kTlv320 = "/sbin/insmod /dvs/extdrv/tlv_320.ko"; // audio codec
constexpr const char *kIse2010 = "/sbin/insmod /dvs/extdrv/ise_2010.ko";
constexpr const char *kDs1339 = "/sbin/insmod /dvs/extdrv/ds_1339.ko"; // clock
constexpr const char *kOv2643 = "/sbin/insmod /dvs/extdrv/ov_2643.ko"; // sensor
constexpr const char *kHiUsb = "/sbin/insmod /dvs/extdrv/hiusb.ko";

constexpr size_t kMostCommands = 11;

/// The commands of one model, in this order, after those of its whole family.
struct DriverPlan {
    const char *model; ///< null: every other text
    const char *commands[kMostCommands];
};

// The first family, after its register module. Boards with four channels have no codec, and VM41
// has none of these devices.
constexpr DriverPlan kFourChannelPlans[] = {
    {"VM38", {kTw2864, kIse2010, kHiUsb}},
    {nullptr, {kTw2864, kIse2010}},
};

constexpr DriverPlan kOneChannelPlans[] = {
    {"VM10", {kTw9910}},
    {"VM53", {kTw9910, kTlv320, kIse2010, kHiUsb}},
    {"VM28", {kTlv320, kOv2643}},
    {"VM40", {kTlv320, kOv2643, kDs1339}},
    {"VM41", {}},
    {"VM43", {kTw9910, kTlv320, kDs1339}},
    {"VM44",
     {kTw9910, kTlv320, "/bin/reg -c 0x101E0020 0x00100000", "/bin/reg -s 0x101E5400 0x00000002",
      "/bin/reg -c 0x101E5008 0x00000002"}},
    {"VM39", {kTw9910, kTlv320}},
    {nullptr, {kTw9910, kTlv320, kIse2010}},
};

// The second family: the commands of all its models, then those of each.
constexpr const char *kSecondFamilyCommands[] = {
    "/bin/reg -c 0x20110094 0x00000001",
    "/bin/reg -c 0x20110270 0x00000004",
    kDs1339,
};
constexpr DriverPlan kSecondFamilyPlans[] = {
    {"VM37", {kTw2864}},
    {"VM42",
     {"/bin/reg -s 0x200F009C 0x01", "/bin/reg -s 0x20150400 0x04", "/bin/reg -c 0x20150010 0x04",
      "/bin/reg -s 0x200F00A0 0x01", "/bin/reg -s 0x20150400 0x08", "/bin/reg -c 0x20150020 0x08",
      "/bin/reg -c 0x200F00A4 0x01", "/bin/reg -s 0x20150400 0x10", "/bin/reg -c 0x20150040 0x10",
      kGv7601, kTlv320}},
    {nullptr, {kTlv320}},
};

/// Runs the commands of the first row for this model or for every other text.
void RunPlan(std::span<const DriverPlan> plans, std::string_view model)
{
    for (const DriverPlan &plan : plans) {
        if (plan.model != nullptr && plan.model != model) {
            continue;
        }
        for (const char *command : plan.commands) {
            if (command != nullptr) {
                RunShell(command);
            }
        }
        return;
    }
}

} // namespace

int load_drv(int /*argc*/, char ** /*argv*/)
{
    const ModelName model = ReadModel();
    if (CMODEL_GetPlatform(model.data()) == 2) {
        RunShell(kSecondFamilyCommands);
        RunPlan(kSecondFamilyPlans, model.data());
        return 0;
    }
    RunShell(kHi3512Reg);
    if (CMODEL_GetChannelCount(model.data()) == 4) {
        RunPlan(kFourChannelPlans, model.data());
    } else {
        RunPlan(kOneChannelPlans, model.data());
    }
    return 0;
}
