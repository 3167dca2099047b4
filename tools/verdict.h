// What a board would say to a package.
#pragma once

#include <optional>
#include <string>

#include "flash/package.h"

/// The two words with which every package begins.
struct PackageStart {
    uint32_t magic;
    int32_t version;
};

/// Reads them; nothing when the file cannot be read or is too short.
std::optional<PackageStart> ReadPackageStart(const char *path);

/// Runs the board's checks in their order.
///
/// @return empty when a board that expects this accepts the package; otherwise the first fault,
/// with
///         what was found and what was expected
std::string WhyRefused(const char *path, const PackageExpectation &expectation);
