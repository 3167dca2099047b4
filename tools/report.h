// The results of fwpack's checks of a package.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "tools/kernel_image.h"
#include "tools/partitions.h"
#include "tools/region.h"

/// The result for a region. kNotExamined: the board does not check it.
enum class RegionVerdict { kOk, kBad, kNotExamined };

struct RegionReport {
    Region region;
    std::string contents; ///< the apparent contents; empty if the file holds none
    std::string fault;    ///< what is wrong with its place or its size, or empty
    RegionVerdict verdict;
    std::string reason; ///< for the verdict; may be empty
};

struct Report {
    Package package;
    std::string refusal; ///< why a board with this marker and layout refuses it, or empty
    std::array<RegionReport, 3> regions;
    std::optional<KernelImage> kernel; ///< nothing if region 1 does not begin like one
};

Report Examine(const char *path, const Package &package,
               const std::optional<PartitionSizes> &partitions);
