// The device's services that an upgrade stops.
#pragma once

#include <signal.h>

#include <span>

#include "util/process.h"

/// A program, as CUTIL_KillProc finds it, and the signal that it gets.
struct ServiceSignal {
    const char *service;
    int signal_number;
};

/// Lets an upgrade outlive the console that it was started from: its shell may be among what is
/// killed, and half-written flash is worse than a line that nobody reads.
inline void OutliveConsole()
{
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
}

/// Sends the signals, one after another.
inline void SignalServices(std::span<const ServiceSignal> stops)
{
    for (const ServiceSignal &stop : stops) {
        CUTIL_KillProc(stop.service, stop.signal_number);
    }
}
