// Rewrites one key of a key=value configuration file.
//
// Builds the new text in a scratch file and renames it onto the target, so readers see the old file
// or the new one, never half of one. If the scratch file cannot be written completely (a full
// disk), removes it and leaves the target as it was. Both files must be on one file system.
//
// The applets use CUTIL_SetConfValue only. The other two functions are for the board's other
// programs, so they are an interface.
#pragma once

/// Sets `key` to `value` in the file `path`, through the scratch file "/etc/temp.conf".
///
/// Replaces every line whose name equals `key`, or appends a line. A line's name ends at its first
/// space or '='; tabs do not end it, and leading blanks belong to it. This is stricter than the
/// reader's match: setting "port" must not replace "port_2". Reads lines in pieces of 255
/// characters.
///
/// Only the existence of the scratch file keeps a second writer out.
///
/// @return 0; -1 when the scratch file exists or the target cannot be read; -2 when the scratch
///         file cannot be created or written; -3 when the rename fails (the scratch file stays, and
///         refuses every later call). A message on standard output says which file cannot be
///         opened.
int CUTIL_SetConfValue(const char *path, const char *key, const char *value);

/// As CUTIL_SetConfValue with these differences: it does not test whether the scratch file is in
/// use; a line matches when it begins with `key`; the new line is key, `separator`, value; every
/// failure is -1.
int CUTIL_SetConfValueSep(char separator, const char *path, const char *key, const char *value);

/// As CUTIL_SetConfValueSep with '=', through the scratch file `scratch_path`, for lines up to
/// 262143 characters.
int CUTIL_SetFileValue(const char *path, const char *scratch_path, const char *key,
                       const char *value);
