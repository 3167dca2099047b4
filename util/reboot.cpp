#include "util/reboot.h"

#include <signal.h>
#include <unistd.h>

#include "util/process.h"
#include "util/shell.h"

namespace
{

[[noreturn]] void TerminateAndReboot()
{
    CUTIL_KillProcAll("/etc/termList", SIGTERM);
    sleep(1);
    RunShell("umount /mnt/sd/");
    usleep(100);
    RunShell("umount /mnt/usb/");
    usleep(100);
    RunShell("ifconfig rausb0 down");
    RunShell("rmmod rt73");
    usleep(100);
    RunShell("/sbin/reboot");
    // Only the restart ends this process. The empty statement keeps the loop from being removed.
    for (;;) {
        asm volatile("");
    }
}

} // namespace

void CUTIL_Reboot()
{
    // A board without the list still reboots.
    CUTIL_KillProcAll("/etc/killList", SIGKILL);
    TerminateAndReboot();
}

void CUTIL_RebootFixedList()
{
    for (const char *name :
         {"/bin/dhcpd", "/bin/islmanager", "/bin/snmpd", "/bin/TEVNetManager", "/bin/sh"}) {
        CUTIL_KillProc(name, SIGKILL);
    }
    TerminateAndReboot();
}
