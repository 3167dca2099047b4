// Finds and signals processes by the beginning of their command line.
//
// The arguments of a command line are separated by NUL in /proc, so a name is compared with the
// path under which a program was started. A process that ends during a scan is skipped.
#pragma once

/// Sends `signal_number` to every process with id 20 or above whose command line begins with
/// `name`: "/bin/sh" also reaches "/bin/shd". The ids below 20 are the board's early system
/// processes. Returns 0, also when /proc cannot be read.
int CUTIL_KillProc(const char *name, int signal_number);

/// Sends `signal_number` as CUTIL_KillProc does, for every name in the file `list_path`.
///
/// One name per line, at most 31 characters with its newline, at most 16 names (further ones are
/// not read). Longer lines are skipped, and lines with a NUL byte. A process that two names match
/// gets the signal twice. A blank line is the empty name, which matches every process.
///
/// Logs its steps to the system log.
///
/// @return 0; -1 when the list cannot be opened
int CUTIL_KillProcAll(const char *list_path, int signal_number);

/// Tells whether a process with id 21 or above runs whose command line begins with `name`.
///
/// Prints "CUTIL_IsProc error while open %s" for each process whose command line cannot be opened,
/// and with `debug` set (not 0) every step.
///
/// @return 1 when found, 0 when not, -1 when /proc cannot be opened or closed
int CUTIL_IsProc(const char *name, int debug);
