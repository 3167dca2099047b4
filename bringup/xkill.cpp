// xkill [SIGTERM | SIGKILL | alive] NAME: stops programs by the beginning of their command line, or
// tells whether one runs.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "bringup/applets.h"
#include "util/elapsed_time.h"
#include "util/process.h"

namespace
{

constexpr uint32_t kWaitLimit = 10'000; // milliseconds

/// Waits until no process runs as `name`, at most 10 seconds. Returns the last result of
/// CUTIL_IsProc.
int XKILL_WaitGone(const char *name)
{
    const TimeStamp start = Now();
    int result = 0;
    while (!IsExpired(start, Now(), kWaitLimit)) {
        result = CUTIL_IsProc(name, 0);
        if (result == 0) {
            break;
        }
        usleep(0); // no pause: the caller goes on the moment the process is gone
    }
    return result;
}

void KillAndWait(const char *name, int signal_number, const char *awaited)
{
    CUTIL_KillProc(name, signal_number);
    XKILL_WaitGone(awaited); // the caller must notice a process that stays
}

} // namespace

int xkill(int argc, char **argv)
{
    if (argc == 2) {
        KillAndWait(argv[1], SIGTERM, argv[1]);
    } else if (argc == 3) {
        const std::string_view word = argv[1];
        const char *name = argv[2];
        // With a signal word, it awaits that word in place of the name. Nothing runs under such a
        // name, so it does not wait.
        if (word == "SIGTERM") {
            KillAndWait(name, SIGTERM, argv[1]);
        } else if (word == "SIGKILL") {
            KillAndWait(name, SIGKILL, argv[1]);
        } else if (word == "alive" && CUTIL_IsProc(name, 0) != 0) {
            std::printf("Alive %s\n", name);
        }
    }
    return 0;
}
