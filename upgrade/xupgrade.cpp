// xupgrade [-f] [-b] [-i] [-r PORT] [-h]: installs /tmp/flash3 from the console, feeding the
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
    int32_t factory_default;
    int32_t reboot;
    int32_t ignore_oem;
    int32_t udp_port; ///< accepted for the callers that pass it; nothing is sent
    bool help;
};

CTHREAD g_thread_record;
CWDT g_watchdog_record;
CTHREAD *g_thread = nullptr;
CWDT *g_watchdog = nullptr; ///< set by the worker thread before it reports that it runs

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

/// Walks all arguments up to "-h". The one behind "-r" is its port and also counts as an option of
/// its own. A "-r" at the end reads as port 0.
Options ParseArguments(std::span<char *const> arguments)
{
    Options options{};
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "-f") {
            options.factory_default = 1;
        } else if (argument == "-b") {
            options.reboot = 1;
        } else if (argument == "-i") {
            options.ignore_oem = 1;
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
    g_watchdog = &g_watchdog_record;
    CWDT_Init(g_watchdog);
    return 0; // a board without a watchdog is upgraded too
}

int32_t XUPGRADE_WatchdogLoop(void * /*arg*/)
{
    if (g_watchdog != nullptr) {
        // A failure does not matter: the next second tries again.
        CWDT_KeepAlive(g_watchdog);
    }
    sleep(1);
    return 0;
}

/// Feeds once more and neither disarms nor closes: what runs next has the time-out to take over.
void XUPGRADE_WatchdogExit(void * /*arg*/)
{
    if (g_watchdog != nullptr) {
        CWDT_KeepAlive(g_watchdog);
    }
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

void StartFeeding()
{
    g_thread = &g_thread_record;
    CTHREAD_Init(g_thread, nullptr, XUPGRADE_WatchdogInit, XUPGRADE_WatchdogLoop,
                 XUPGRADE_WatchdogExit);
    g_thread->start(g_thread); // a thread that does not start is no reason to stop here
}

void StopFeeding()
{
    if (g_thread != nullptr) {
        g_thread->stop(g_thread);
        g_thread = nullptr;
    }
}

uint32_t InstallerFlags(const Options &options)
{
    uint32_t flags = 0;
    if (options.factory_default != 0) {
        flags |= UPGRADE_FLAG_FACTORY_DEFAULT;
    }
    // The marker is compared only with "-i", although the help line says the opposite.
    if (options.ignore_oem != 0) {
        flags |= UPGRADE_FLAG_CHECK_MARKER;
    }
    return flags;
}

void Upgrade(const Options &options)
{
    // The system manager feeds the watchdog; from here on that falls to us.
    CUTIL_KillProc("/bin/TEVSysMgr", SIGTERM);
    sleep(1);
    StartFeeding();
    SignalServices(kStops);
    sleep(3);
    const int result = CFlash_TEVWrite("/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3",
                                       InstallerFlags(options));
    std::puts(result == 0 ? "Upgrade complete." : "Upgrade fail.");
}

} // namespace

int xupgrade(int argc, char **argv)
{
    OutliveConsole();
    const Options options = ParseArguments(std::span{argv, static_cast<size_t>(argc)}.subspan(1));
    if (options.help) {
        PrintHelp(argv[0]);
    } else {
        Upgrade(options);
    }
    StopFeeding();
    if (options.reboot != 0) {
        CUTIL_Reboot();
    }
    return 0;
}
