// Where a region lies in a package.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "flash/package.h"

/// The regions by the names of the options and files that hold them.
constexpr std::array<const char *, 3> kRegionNames{"kernel", "second", "etc"};

/// The place that the header states, whatever the file has there.
struct Region {
    int64_t start; ///< in the file
    int64_t size;
    int64_t file_size;

    /// What is wrong with the place; empty when the file holds all of it.
    [[nodiscard]] std::string Fault() const;
    /// Whether its bytes, or some of them, can be looked at.
    [[nodiscard]] bool Begins() const { return size > 0 && start >= 0 && start < file_size; }
};

Region RegionOf(const Package &package, size_t index);

/// Prints a warning for each size below zero: a board takes such a package as long as the sum of
/// the sizes is right.
void WarnOfNegativeSizes(const char *path, const Package &package);
