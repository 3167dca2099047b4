// What the parts of fwpack share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

/// The subcommands. Each gets the arguments from its own name on and returns the exit status.
int RunCreate(int argc, char **argv);
int RunInfo(int argc, char **argv);
int RunCheck(int argc, char **argv);

/// Prints "fwpack: " and the message on standard error.
__attribute__((format(printf, 1, 2))) void PrintError(const char *format, ...);

/// Prints where help is to be had. Returns kExitUsage.
int UsageError();

/// The number that is the whole of `text`.
std::optional<int32_t> ParseNumber(const char *text);

/// The two words with which every package begins.
struct PackageStart {
    uint32_t magic;
    int32_t version;
};

/// Reads them; nothing when the file cannot be read or is too short.
std::optional<PackageStart> ReadPackageStart(const char *path);

/// A magic word as its characters, those that cannot be printed as dots.
std::string MarkerText(uint32_t magic);
