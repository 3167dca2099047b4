// What the program's checks write to the board's system log. None of it reaches this machine's log.
#pragma once

/// From now on every line appears on standard error.
void ShowBoardLog();
