// Rewrites one key of a key=value configuration file.
//
// The new text is built in a scratch file that is then renamed onto the target: readers see the old
// file or the new one, never half of one. A scratch file that could not be written in full (a full
// disk) is removed and the target stays as it was. Target and scratch file must lie on one file
// system.
#pragma once

/// Sets `key` to `value` in the file `path`, through the scratch file "/etc/temp.conf".
///
/// Every line whose name equals `key` is replaced; without one, a line is appended. A line's name
/// ends at its first space or '=', tabs are no separators and leading blanks are not skipped. This
/// is stricter than the reader's match: setting "port" must not replace "port_2". Lines are read in
/// pieces of 255 characters.
///
/// The existence of the scratch file keeps a second writer out; nothing else does.
///
/// @return 0; -1 when the scratch file exists or the target cannot be read; -2 when the scratch
///         file cannot be created or written; -3 when the rename fails (the scratch file stays, and
///         refuses every later call). A message on standard output says which file cannot be
///         opened.
int CUTIL_SetConfValue(const char *path, const char *key, const char *value);

/// As CUTIL_SetConfValue with these differences: no test whether the scratch file is in use; a line
/// matches when it begins with `key`; the new line is key, `separator`, value; every failure is -1.
int CUTIL_SetConfValueSep(char separator, const char *path, const char *key, const char *value);

/// As CUTIL_SetConfValueSep with '=', through the scratch file `scratch_path`, for lines up to
/// 262143 characters.
int CUTIL_SetFileValue(const char *path, const char *scratch_path, const char *key,
                       const char *value);
