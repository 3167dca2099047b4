#include "upgrade/console.h"

#include <signal.h>

#include <cstdio>

void OutliveConsole()
{
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
}
