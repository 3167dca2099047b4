// The device's services that an upgrade stops.
#pragma once

#include <span>

#include "util/process.h"

/// A program, as CUTIL_KillProc finds it, and the signal that it gets.
struct ServiceSignal {
    const char *service;
    int signal_number;
};

/// Sends the signals, one after another.
inline void SignalServices(std::span<const ServiceSignal> stops)
{
    for (const ServiceSignal &stop : stops) {
        CUTIL_KillProc(stop.service, stop.signal_number);
    }
}
