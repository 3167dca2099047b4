#include "tools/board_log.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace
{

std::array<char, 256> g_line{};

} // namespace

std::string LastLogLine()
{
    std::string line{g_line.data()};
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    return line;
}

// Takes the place of the C library's: a definition in the executable wins.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): libc's are reserved names
extern "C" void syslog(int /*priority*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(g_line.data(), g_line.size(), format, arguments);
    va_end(arguments);
}
