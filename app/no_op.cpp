// The applets that do nothing. Scripts on the board call them by name and expect success.

#include "app/applets.h"

int no_op(int /*argc*/, char ** /*argv*/)
{
    return 0;
}

/// Reserves 512 KiB of stack and does nothing else.
int xbootenv(int /*argc*/, char ** /*argv*/)
{
    char scratch[512 * 1024];
    asm volatile("" : : "r"(scratch)); // keeps the area reserved
    return 0;
}
