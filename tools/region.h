// The place of a region in a package.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "flash/package.h"

/// The regions by the names of the options and files that hold them.
constexpr std::array<const char *, 3> kRegionNames{"kernel", "second", "etc"};

/// The place from the header. The file may be shorter.
struct Region {
    int64_t start; ///< in the file
    int64_t size;
    int64_t file_size;

    /// What is wrong with the place; empty if the file holds the whole region.
    [[nodiscard]] std::string Fault() const;
    /// Whether the file holds at least a part of it.
    [[nodiscard]] bool Begins() const { return size > 0 && start >= 0 && start < file_size; }
};

Region RegionOf(const Package &package, size_t index);

/// Prints a warning for each size below zero. A board accepts such a package if the sum of the
/// sizes is right.
void WarnOfNegativeSizes(const char *path, const Package &package);
