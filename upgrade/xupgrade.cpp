// xupgrade [-f] [-b] [-i] [-r PORT] [-h]: installs /tmp/flash3 from the console and feeds the
// watchdog meanwhile.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <span>
#include <string_view>

#include "flash/installer.h"
#include "upgrade/applets.h"
#include "upgrade/console.h"
#include "upgrade/services.h"
#include "upgrade/watchdog.h"
#include "upgrade/worker_thread.h"
#include "util/number.h"
#include "util/reboot.h"

namespace
{

struct Options {
    uint32_t flags;   ///< the installer's
    int32_t udp_port; ///< accepted for the callers that pass it; nothing is sent
    bool reboot;
    bool help;
};

CTHREAD g_thread;
CWDT g_watchdog; ///< the worker thread's

// "/bin/sh" reaches every shell, and "/bin/web" also "/bin/webs".
constexpr ServiceSignal kStops[] = {
    {"/bin/encpd", SIGKILL},         {"/bin/genetec_discovery", SIGKILL},
    {"/bin/TEVNetManager", SIGKILL}, {"/bin/sh", SIGKILL},
    {"/bin/AVServer", SIGTERM},      {"/bin/AVClient", SIGTERM},
    {"/bin/RecordDaemon", SIGTERM},  {"/bin/RTSPServer", SIGTERM},
    {"/bin/RTSPClient", SIGTERM},    {"/bin/onvif_discovery", SIGTERM},
    {"/bin/onvif_server", SIGTERM},  {"/bin/web", SIGTERM},
    {"/bin/webs", SIGKILL},          {"/bin/lighttpd", SIGKILL},
    {"/bin/confd", SIGKILL},
};

/// Reads all arguments up to "-h". The argument after "-r" is its port, and is also read as an
/// option. A "-r" at the end means port 0.
Options ParseArguments(std::span<char *const> arguments)
{
    Options options{};
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "-f") {
            options.flags |= UPGRADE_FLAG_FACTORY_DEFAULT;
        } else if (argument == "-b") {
            options.reboot = true;
        } else if (argument == "-i") {
            // Only "-i" compares the marker, although the help line says the opposite.
            options.flags |= UPGRADE_FLAG_CHECK_MARKER;
        } else if (argument == "-h") {
            options.help = true;
            break;
        } else if (argument == "-r") {
            const bool last = i + 1 == arguments.size();
            options.udp_port = last ? 0 : ParseLeadingInteger(arguments[i + 1]);
        }
    }
    return options;
}

int32_t XUPGRADE_WatchdogInit(void * /*arg*/)
{
    CWDT_Init(&g_watchdog);
    return 0; // a board without a watchdog is upgraded too
}

int32_t XUPGRADE_WatchdogLoop(void * /*arg*/)
{
    CWDT_KeepAlive(&g_watchdog); // a failure does not matter: the next second tries again
    sleep(1);
    return 0;
}

/// Feeds once more. Does not disarm or close: the next program has the time-out to take over.
void XUPGRADE_WatchdogExit(void * /*arg*/)
{
    CWDT_KeepAlive(&g_watchdog);
}

void PrintHelp(const char *program)
{
    std::printf("'%s' usage : \n", program);
    std::puts("        -f                      When the update is complete, factorydefault.");
    std::puts("        -b                      When the update is complete, system reboot.");
    std::puts("        -i                      Ignore the 'OEM code' and proceed the update. ");
    std::puts("        -r <udp_port>           send udp log message.");
    std::puts("        -h                      program help page.");
}

void Upgrade(uint32_t flags)
{
    // The system manager feeds the watchdog. Once it is gone, this process must feed it.
    CUTIL_KillProc("/bin/TEVSysMgr", SIGTERM);
    sleep(1);
    CTHREAD_Init(&g_thread, nullptr, XUPGRADE_WatchdogInit, XUPGRADE_WatchdogLoop,
                 XUPGRADE_WatchdogExit);
    g_thread.start(&g_thread); // a thread that does not start is no reason to stop here
    SignalServices(kStops);
    sleep(3);
    const int result =
        CFlash_TEVWrite("/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3", flags);
    std::puts(result == 0 ? "Upgrade complete." : "Upgrade fail.");
    g_thread.stop(&g_thread);
}

} // namespace

int xupgrade(int argc, char **argv)
{
    OutliveConsole();
    const Options options = ParseArguments(std::span{argv, static_cast<size_t>(argc)}.subspan(1));
    if (options.help) {
        PrintHelp(argv[0]);
    } else {
        Upgrade(options.flags);
    }
    if (options.reboot) {
        CUTIL_Reboot();
    }
    return 0;
}
