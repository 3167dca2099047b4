// What a board would say to a package.
#pragma once

#include <string>
#include <variant>

#include "flash/package.h"

/// What a board says.
struct Verdict {
    std::variant<Package, HeaderRefusal> opened;
    std::string reason; ///< the first fault, with what was found and what was expected; empty when
                        ///< the package is accepted
};

/// Runs the board's checks in their order.
Verdict Judge(const char *path, const PackageExpectation &expectation);

/// Opens a package as a board does that expects whatever layout it has, and any marker.
std::variant<Package, HeaderRefusal> OpenByItself(const char *path);

/// Why the file cannot be looked at: not there, not a plain file, not readable; empty when it can.
std::string WhyUnreadable(const char *path);

/// Prints why OpenByItself refused the file, and what it looks like. Returns false.
bool SayNoPackage(const char *path, const HeaderRefusal &refusal);
