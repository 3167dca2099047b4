// upgrade [PACKAGE [-v] [-f] ...]: installs a firmware package and reboots the board.

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

#include "flash/installer.h"
#include "upgrade/applets.h"
#include "upgrade/console.h"
#include "upgrade/local_udp.h"
#include "upgrade/services.h"
#include "util/fd.h"
#include "util/reboot.h"
#include "util/shell.h"
#include "util/system_manager.h"

namespace
{

struct Request {
    const char *package = "/tmp/flash3";
    uint32_t flags = 0;
};

// What is stopped with fewer than two arguments.
constexpr ServiceSignal kQuietStops[] = {
    {"/bin/webs", SIGKILL},
    {"/bin/lighttpd", SIGKILL},
    {"/bin/confd", SIGKILL},
};

// What is stopped otherwise.
constexpr ServiceSignal kStops[] = {
    {"/bin/confd", SIGTERM},
    {"/bin/webs", SIGTERM},
    {"/bin/lighttpd", SIGTERM},
    {"/bin/AVServer", SIGTERM},
    {"/bin/ucftpd", SIGTERM},
    {"/bin/encpd", SIGTERM},
    {"/bin/onvif_discovery", SIGTERM},
    {"/bin/onvif_server", SIGTERM},
    {"/bin/genetec_discovery", SIGTERM},
    {"/bin/RTSPServer", SIGTERM},
    {"/bin/confd", SIGKILL},
    {"/bin/AVServer", SIGKILL},
    {"/bin/genetec_discovery", SIGKILL},
};

/// The first argument is always the package; options come after it.
Request ParseArguments(std::span<char *const> arguments)
{
    Request request{arguments[0], 0};
    for (const std::string_view option : arguments.subspan(1)) {
        if (option == "-v") {
            request.flags |= UPGRADE_FLAG_VERBOSE;
        } else if (option == "-f") {
            request.flags |= UPGRADE_FLAG_FACTORY_DEFAULT;
        }
    }
    return request;
}

void NotifySystemManager()
{
    const int number = TEV_OpenLocalUDPCSocket();
    // A process without standard input is broken, so 0 counts as a failure too. It stays open.
    if (number <= 0) {
        return; // the upgrade goes on
    }
    const Fd fd{number};
    TEV_SendLocalUDPData(fd.get(), kSystemManagerPort, kUpgradeNotice.bytes.data(),
                         kUpgradeNotice.bytes.size());
}

void StopServices()
{
    if (access("/bin/xkill", R_OK) != 0) {
        SignalServices(kStops);
        return;
    }
    // xkill waits until a service that got SIGTERM is gone.
    for (const ServiceSignal &stop : kStops) {
        std::array<char, 64> command;
        std::snprintf(command.data(), command.size(), "/bin/xkill %s%s",
                      stop.signal_number == SIGKILL ? "SIGKILL " : "", stop.service);
        RunShell(command.data());
    }
}

void Report(const char *outcome, uint32_t flags)
{
    syslog(LOG_ALERT, "%s", outcome); // success too: the line must pass every log filter
    if ((flags & UPGRADE_FLAG_VERBOSE) != 0) {
        std::puts(outcome);
    }
}

} // namespace

int upgrade(int argc, char **argv)
{
    OutliveConsole();
    // The stamp belongs to the daemon's version, not to this build.
    syslog(LOG_INFO, "%s(%s) start", "Upgrade Daemon v1.0.0.1", "2012.09.25-00:50+0000");

    Request request;
    if (argc <= 2) { // a single argument is ignored
        sleep(2);
        SignalServices(kQuietStops);
    } else {
        request = ParseArguments({argv + 1, argv + argc});
        NotifySystemManager();
        StopServices();
    }
    const int result =
        CFlash_TEVWrite(request.package, "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3", request.flags);
    Report(result == 0 ? "Upgrade complete." : "Upgrade fail.", request.flags);
    if (request.flags != 0) {
        sleep(2);
    }
    CUTIL_Reboot();
}
