// Text that fwpack prints.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Prints "fwpack: " and the message on standard error, after flushing standard output.
__attribute__((format(printf, 1, 2))) void PrintError(const char *format, ...);

/// Prints "fwpack: ", the path and the reason. Returns false.
bool Refuse(const char *path, const std::string &reason);

/// printf into a string.
__attribute__((format(printf, 1, 2))) std::string Format(const char *format, ...);

/// The text up to its first zero byte, with dots for unprintable characters.
std::string Printable(std::string_view text);

/// The four bytes of a magic word, in the order of the file.
std::string MagicBytes(uint32_t magic);

/// A magic word as a marker and as the word in the board's log.
std::string MarkerText(uint32_t magic);
