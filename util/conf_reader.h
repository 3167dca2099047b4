// Reads key=value configuration files.
//
// Lines that begin with '#' or '[' (after blanks) are skipped; sections have no meaning. A line
// longer than the reader's buffer is read in pieces, and each piece counts as a line.
//
// No applet looks for whole keys or takes another separator. These functions are for the board's
// other programs, so they are an interface.
#pragma once

#include <span>

/// Copies the token at the beginning of `text`, up to '=' or the end of the line, to `token_out`.
///
/// Skips blanks before the token and removes exactly one blank after it. A token that begins with a
/// double quote loses its first and last character, even if the last one is no quote.
///
/// @param token_out  receives the token, cut to its size, always terminated; untouched when there
///                   is no token
/// @return where reading stopped: after the '=', at the end of the line, or at a '#' or '[' in
///         place of the token; null for an empty line
const char *CUTIL_ParseConfLine(std::span<char> token_out, const char *text);

/// As CUTIL_ParseConfLine, with `separator` in place of '='.
const char *CUTIL_ParseConfLineSep(char separator, std::span<char> token_out, const char *text);

/// Looks up `key` in the configuration file `path` and copies its value to `destination`.
///
/// The first line whose key *begins with* `key` wins: asking for "cam" finds "cam_model=VM01".
/// Without such a line `destination` still receives the value of the file's last key line. A value
/// that itself begins with '#' or '[' is not read.
///
/// Lines up to 2047 characters, keys up to 63, values up to 2047.
///
/// @param destination  receives the value, cut to its size, always terminated
/// @return 0, also when no line matches; -1 when the file cannot be opened, with `destination`
///         untouched
int CUTIL_GetConfValue(const char *path, const char *key, std::span<char> destination);

/// As CUTIL_GetConfValue, but the whole key must be equal. Keys up to 1023 characters.
int CUTIL_GetConfValueExact(const char *path, const char *key, std::span<char> destination);

/// As CUTIL_GetConfValue with `separator` in place of '='. Lines up to 255 characters, keys up to
/// 63, values up to 191.
int CUTIL_GetConfValueSep(const char *path, const char *key, std::span<char> destination,
                          char separator);
