// The commands of fwpack: their options, usage and help, from one table.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/partitions.h"

constexpr int kExitDone = 0;
constexpr int kExitRefused = 1; ///< or failed
constexpr int kExitUsage = 2;   ///< or, with check, a file that cannot be read

/// The values of the options. Each command reads its own.
struct Arguments {
    int32_t layout = 1;
    std::optional<uint32_t> marker; ///< as the word in a header
    std::array<const char *, 3> regions{};
    const char *output = nullptr;
    const char *output_dir = nullptr;
    std::optional<size_t> region; ///< 0 to 2
    std::optional<PartitionSizes> partitions;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::vector<const char *> operands;
};

/// The commands. Each returns the exit status.
int RunCreate(const Arguments &arguments);
int RunCheck(const Arguments &arguments);
int RunInfo(const Arguments &arguments);
int RunExtract(const Arguments &arguments);

/// Runs the command line; `arguments` begins with the program's name. Returns the exit status.
int RunCommandLine(std::span<char *> arguments);
