#include "util/shell.h"

#include <cstdlib>

void RunShell(const char *command)
{
    [[maybe_unused]] const int status = std::system(command);
}

void RunShell(std::span<const char *const> commands)
{
    for (const char *command : commands) {
        RunShell(command);
    }
}
