// All that fwpack finds out about a package.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "tools/kernel_image.h"
#include "tools/partitions.h"
#include "tools/region.h"

/// What a region is worth. A region that the board's checks pass over is kNotExamined.
enum class RegionVerdict { kOk, kBad, kNotExamined };

struct RegionReport {
    Region region;
    std::string contents; ///< what seems to be there; empty when nothing can be looked at
    std::string fault;    ///< what is wrong with its place or its size; empty when nothing is
    RegionVerdict verdict;
    std::string reason; ///< for the verdict; may be empty
};

struct Report {
    Package package;
    std::string refusal; ///< why a board with this marker and layout refuses it; empty when not
    std::array<RegionReport, 3> regions;
    std::optional<KernelImage> kernel; ///< nothing when region 1 does not begin like one
};

Report Examine(const char *path, const Package &package,
               const std::optional<PartitionSizes> &partitions);
