// What the parts of fwpack share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

/// The subcommands. Each gets its own name, with "fwpack" before it, and the arguments behind it,
/// and returns the exit status.
int RunCreate(int argc, char **argv);
int RunInfo(int argc, char **argv);
int RunCheck(int argc, char **argv);

/// Prints "fwpack: " and the message on standard error.
__attribute__((format(printf, 1, 2))) void PrintError(const char *format, ...);

/// Prints where help is to be had: "fwpack create" has its own. Returns kExitUsage.
int UsageError(const char *command);

/// printf into a string.
__attribute__((format(printf, 1, 2))) std::string Format(const char *format, ...);

/// The text up to its first zero byte, with dots for what would not print.
std::string Printable(std::string_view text);

/// A magic word as the marker that it stands for and as the word that the board logs.
std::string MarkerText(uint32_t magic);
