// What a package holds, and what a board makes of it. The checks are the board's own.
#pragma once

#include <optional>

#include "flash/package.h"
#include "flash/uimage.h"
#include "tools/files.h"
#include "tools/partitions.h"

/// The regions by the names of the options and files that hold them.
constexpr std::array<const char *, 3> kRegionNames{"kernel", "second", "etc"};

struct Region {
    int64_t start; ///< in the file
    int64_t size;
    bool is_whole;                        ///< the file holds all of it
    const char *contents = "";            ///< what it seems to hold, if that was looked at
    const char *verdict = "not examined"; ///< or "ok" or "bad"
    std::string reason;                   ///< what is wrong with it, or empty
    std::string sha256;                   ///< see Sha256; empty if not computed
};

/// A kernel image in region 1. The header is zero if the file ends within it.
struct KernelImage {
    ImageHeader header;
    std::string fault; ///< why a board refuses it, or empty
    uint32_t data_crc; ///< the correct one, over the data that the file has
    std::string operating_system, architecture, type, compression;
};

struct Examination {
    std::optional<Package> package; ///< nothing if a board refuses the header; then only `refusal`
    std::string refusal;            ///< the first check that fails on a board, or empty
    std::string reason;             ///< the first one not to install it on the board, or empty
    std::string sha256;             ///< of the package, like that of a region
    std::array<Region, 3> regions;
    KernelImage kernel;
    std::vector<std::string> misfits;  ///< why regions do not fit the known partitions
    std::vector<std::string> warnings; ///< what may go wrong although a board accepts it

    void PrintWarnings(const std::string &name) const;
};

/// What a board accepts. Nothing: every layout and marker; then a file that is no package is a
/// Failure.
using Expectation = std::optional<PackageExpectation>;

/// Opens a package and finds its regions, but does not look into them.
Examination Locate(const InputFile &file, const Expectation &expectation);

/// Makes the board's checks in the same order, and looks at each region once.
Examination Examine(const InputFile &file, const Expectation &expectation, const Board &board);
