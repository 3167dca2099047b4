#include "tools/progress.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace
{

std::array<char, 256> g_work{};
size_t g_length = 0;
volatile sig_atomic_t g_shown = 0;

void Print(const char *text, size_t length)
{
    // If the terminal takes no text, the work goes on without.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, length);
}

/// The board's checks do not report progress, so a timer counts instead.
void HandleSecond(int /*signal_number*/)
{
    const int saved = errno;
    if (g_shown == 0) {
        Print(g_work.data(), g_length);
        g_shown = 1;
    }
    Print(".", 1);
    errno = saved;
}

void SetTimer(time_t seconds)
{
    const itimerval interval{{seconds, 0}, {seconds, 0}};
    setitimer(ITIMER_REAL, &interval, nullptr);
}

} // namespace

Progress::Progress(const std::string &work)
{
    if (isatty(STDERR_FILENO) == 0) {
        return;
    }
    g_length = ("fwpack: " + work + " ").copy(g_work.data(), g_work.size());
    struct sigaction handler = {};
    handler.sa_handler = HandleSecond;
    handler.sa_flags = SA_RESTART; // the work must not see interrupted reads
    sigaction(SIGALRM, &handler, nullptr);
    SetTimer(1);
}

Progress::~Progress()
{
    SetTimer(0);
    EndLine();
}

void Progress::EndLine()
{
    if (g_shown != 0) {
        Print("\n", 1);
        g_shown = 0;
    }
}
