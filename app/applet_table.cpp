#include "app/applet_table.h"

#include "app/applets.h"
#include "bringup/applets.h"
#include "hwtest/applets.h"
#include "upgrade/applets.h"

namespace
{

// A new applet is a file of its own, a declaration in its folder's applets.h and one row here. The
// installation makes one link per row.
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

const Applet *Applets()
{
    return kApplets;
}
