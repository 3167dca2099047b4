// The applets that do nothing. Scripts on the board call them by name and expect success.

#include <cstdio>

int no_op(int /*argc*/, char ** /*argv*/)
{
    return 0;
}

/// Takes 512 KiB of stack, as it always has, and leaves it alone.
int xbootenv(int /*argc*/, char ** /*argv*/)
{
    char scratch[512 * 1024];
    asm volatile("" : : "r"(scratch)); // keeps the area reserved
    return 0;
}

int not_built_yet(int /*argc*/, char **argv)
{
    std::printf("%s: not built yet\n", argv[0]);
    return 0;
}
