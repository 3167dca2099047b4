#include "tools/board_log.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace
{

std::array<char, 256> g_line{};
bool g_shown = false;

} // namespace

std::string LastLogLine()
{
    std::string line{g_line.data()};
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    return line;
}

void ShowBoardLog()
{
    g_shown = true;
}

// Takes the place of the C library's: a definition in the executable wins.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): libc's are reserved names
extern "C" void syslog(int /*priority*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line above has started it
    std::vsnprintf(g_line.data(), g_line.size(), format, arguments);
    va_end(arguments);
    if (g_shown) {
        std::fprintf(stderr, "log: %s\n", LastLogLine().c_str());
    }
}
