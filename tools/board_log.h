// What the program's checks write to the board's system log, kept here: on this machine it is the
// reason that the tool gives, and none of it belongs into the machine's own log.
#pragma once

#include <string>

/// The last line logged, without its newline; empty when there was none.
std::string LastLogLine();
