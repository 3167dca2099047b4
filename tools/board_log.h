// The lines that the board's checks write to its system log. They do not reach this machine's log.
#pragma once

/// From now on, prints every line on standard error.
void ShowBoardLog();
