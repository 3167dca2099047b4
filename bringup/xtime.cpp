// xtime: sets the system clock from the board's real-time clock.

#include <array>
#include <cstdio>

#include "bringup/applets.h"
#include "bringup/colour.h"
#include "bringup/rtc.h"
#include "util/shell.h"

int xtime(int /*argc*/, char ** /*argv*/)
{
    RtcTime time{};
    if (CRTC_GetTime(&time) < 0) {
        std::printf("%sGET RTC ERROR !\n%s", kRed, kEndColour);
        return 0;
    }
    std::printf("%sREAD RTC TIME : %04d/%02d/%02d %02d:%02d:%02d%s", kGreen, time.year, time.month,
                time.day, time.hour, time.minute, time.second, kEndColour);
    std::fflush(stdout); // before what the command prints
    std::array<char, 128> command;
    std::snprintf(command.data(), command.size(), "date -s %02d%02d%02d%02d%04d.%02d", time.month,
                  time.day, time.hour, time.minute, time.year, time.second);
    RunShell(command.data());
    return 0;
}
