// test_send_watchdog [MODE [SECONDS]]: feeds a watchdog, by default every 30 seconds, until
// SIGTERM. With MODE "-h" that is the hardware watchdog, otherwise the system manager's.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "hwtest/applets.h"
#include "util/fd.h"
#include "util/number.h"
#include "util/system_manager.h"

namespace
{

volatile sig_atomic_t g_stop = 0;

void RequestStop(int /*signal_number*/)
{
    g_stop = 1;
}

void WriteByte(int fd, char byte)
{
    // Does not report a failed write: the watchdog itself does that.
    [[maybe_unused]] const ssize_t written = write(fd, &byte, 1);
}

void KeepAlive(const Fd &device)
{
    if (device) {
        WriteByte(device.get(), '\0');
    } else {
        constexpr uint8_t kAlive = 1;
        CSYSMGR_SendPacket(kAliveCommand, &kAlive, sizeof kAlive);
    }
}

} // namespace

int test_send_watchdog(int argc, char **argv)
{
    const bool hardware = argc > 1 && std::string_view{argv[1]} == "-h";
    // SECONDS counts without "-h" too.
    const int32_t interval = argc > 2 ? ParseLeadingInteger(argv[2]) : 30;

    signal(SIGTERM, RequestStop);
    g_stop = 0;
    // A reader behind a pipe sees the line while the command runs.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("watchdog [%d, %d]\n", hardware ? 1 : 0, interval);

    const Fd device{hardware ? open("/dev/misc/watchdog", O_WRONLY) : -1};
    if (hardware && !device) {
        std::puts("can't open");
        return -1;
    }
    while (g_stop == 0) {
        KeepAlive(device);
        sleep(static_cast<unsigned>(interval)); // a signal ends it
    }
    if (device) {
        WriteByte(device.get(), 'V'); // disarms the watchdog when it is closed
    }
    return 0;
}
