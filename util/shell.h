// Commands for the board's shell.
#pragma once

#include <span>

/// Runs `command` through the shell and waits for it. Ignores its result: an empty card slot or a
/// module that is not loaded only makes that one command fail.
void RunShell(const char *command);

/// Runs the commands one after another.
void RunShell(std::span<const char *const> commands);
