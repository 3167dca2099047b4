// The console that an upgrade is started from.
#pragma once

/// Lets the process go on without its console. The console's shell may be among the programs that
/// an upgrade kills, and half-written flash is worse than a line that nobody reads. Makes standard
/// output line-buffered, so a script that watches sees each line at once. Call it before anything
/// is printed.
void OutliveConsole();
