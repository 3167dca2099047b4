// What the program's checks write to the board's system log. On this machine the last line is the
// reason that the tool gives, and none of it belongs into the machine's own log.
#pragma once

#include <string>

/// The last line logged, without its newline; empty when there was none.
std::string LastLogLine();

/// From now on every line appears on standard error too.
void ShowBoardLog();
