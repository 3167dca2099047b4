// What a board would say to a package.
#pragma once

#include <string>

#include "flash/package.h"

/// Runs the board's checks in their order.
///
/// @return empty when a board that expects this accepts the package; otherwise the first fault,
///         with what was found and what was expected
std::string WhyRefused(const char *path, const PackageExpectation &expectation);
