#include "tools/examine.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace
{

bool g_shown = false;

/// Each line of the checks ends with a line end.
void ShowLine(const char *format, va_list arguments)
{
    if (g_shown) {
        std::fputs("fwpack: log: ", stderr);
        std::vfprintf(stderr, format, arguments);
    }
}

} // namespace

void ShowBoardLog()
{
    g_shown = true;
}

// A definition in the executable replaces the C library's. With _FORTIFY_SOURCE the checks call the
// second one.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)
void syslog(int /*priority*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ShowLine(format, arguments);
    va_end(arguments);
}

void __syslog_chk(int /*priority*/, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ShowLine(format, arguments);
    va_end(arguments);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)
}
