#include "app/applet_table.h"

#include <iterator>

// Each is defined in the file of its name, or of what two of them share.
AppletHandler no_op, xbootenv;
AppletHandler upgrade, xupgrade;
AppletHandler get_boot_param, load_drv, tev_arp, xfactorydefault, xkill, xtime;
AppletHandler xgpio, xi2c;
AppletHandler test_rs485, test_rs232, test_sdcard, test_usb, test_send_watchdog, get_cb_cam_info;

namespace
{

// A new applet is a file of its own, a declaration above and one row here. The order is that of the
// listing; the installation makes one link per row.
constexpr Applet kApplets[] = {
    {"tev_arp", tev_arp},
    {"load_drv", load_drv},
    {"get_boot_param", get_boot_param},
    {"init_upgrade", no_op},
    {"upgrade", upgrade},
    {"xupgrade", xupgrade},
    {"xfactorydefault", xfactorydefault},
    {"xbootenv", xbootenv},
    {"xgpio", xgpio},
    {"xi2c", xi2c},
    {"xgpioi2c", xi2c},
    {"xkill", xkill},
    {"xtime", xtime},
    {"test_dio", no_op},
    {"test_led", no_op},
    {"test_rs485", test_rs485},
    {"test_rs232", test_rs232},
    {"test_sdcard", test_sdcard},
    {"test_usb", test_usb},
    {"test_key", no_op},
    {"test_rtc", no_op},
    {"test_send_watchdog", test_send_watchdog},
    {"test_audio", no_op},
    {"get_cb_cam_info", get_cb_cam_info},
    {nullptr, nullptr},
};

} // namespace

std::span<const Applet> Applets()
{
    return std::span{kApplets}.first(std::size(kApplets) - 1);
}
