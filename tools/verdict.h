// A board's answer to a package.
#pragma once

#include <string>
#include <variant>

#include "flash/package.h"

/// A board's answer.
struct Verdict {
    std::variant<Package, HeaderRefusal> opened;
    std::string reason; ///< the first fault, with the found and the expected value; empty if the
                        ///< package is accepted
};

/// Makes the board's checks in the same order.
Verdict Judge(const char *path, const PackageExpectation &expectation);

/// Opens a package like a board that accepts every layout and marker.
std::variant<Package, HeaderRefusal> OpenByItself(const char *path);

/// Why the file cannot be read: it is missing, not a plain file or not readable; empty if it can.
std::string WhyUnreadable(const char *path);

/// Prints why OpenByItself refused the file, and which kind of file it may be. Returns false.
bool SayNoPackage(const char *path, const HeaderRefusal &refusal);
