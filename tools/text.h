// Text that fwpack prints.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1; ///< or failed
constexpr int kExitUsage = 2;   ///< or, with check, a package that cannot be read

/// Ends a command: thrown with a message.
struct Failure {
    std::string message;
    int status;
};

/// One text of texts and numbers.
template<typename... Parts>
std::string Text(const Parts &...parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

/// Prints a line of them.
template<typename... Parts>
void Print(const Parts &...parts)
{
    std::puts(Text(parts...).c_str());
}

/// Ends the command with a message of these parts.
template<int status = kExitRefused, typename... Parts>
void FailIf(bool is_wrong, const Parts &...parts)
{
    if (is_wrong) {
        throw Failure{Text(parts...), status};
    }
}

/// Ends the command with the name and errno's text.
void FailErrnoIf(bool is_wrong, const std::string &name);

/// Prints "fwpack: " and the message on standard error, after flushing standard output.
void PrintError(const std::string &message);

std::string Hex(uint32_t number, int digits = 8);

/// The text up to its first zero byte, with dots for unprintable characters.
std::string Printable(std::string_view text);

/// The four bytes of a magic word, in the order of the file.
std::string MagicBytes(uint32_t magic);

/// A magic word as a marker and as the word in the board's log.
std::string MarkerText(uint32_t magic);

/// All layouts, such as "1 and 3".
std::string LayoutNames(const char *separator);
