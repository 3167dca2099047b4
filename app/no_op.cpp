// The applets that do nothing. Scripts on the board call them by name and expect success.

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
