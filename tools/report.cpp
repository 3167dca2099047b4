#include "tools/report.h"

#include "flash/jffs2.h"
#include "tools/text.h"
#include "tools/verdict.h"

namespace
{

void ExamineKernel(const char *path, const std::optional<KernelImage> &kernel, RegionReport &report)
{
    report.contents = kernel ? "kernel image" : "no kernel image";
    report.reason = WhyKernelRefused(path, report.region.start);
    report.verdict = report.reason.empty() ? RegionVerdict::kOk : RegionVerdict::kBad;
}

void ExamineFileSystem(const char *path, const PackageLayout &layout, RegionReport &report)
{
    if (CFlash_CheckJffs2(path, report.region.start) == 0) {
        report.contents = "JFFS2 at every 64 KiB";
        report.verdict = RegionVerdict::kOk;
        return;
    }
    report.contents = "not JFFS2 at every 64 KiB";
    report.reason = report.contents;
    report.verdict = layout.checks_file_system ? RegionVerdict::kBad : RegionVerdict::kNotExamined;
}

RegionReport ExamineRegion(const char *path, const Report &package, size_t index,
                           const std::optional<PartitionSizes> &partitions)
{
    const Region region = RegionOf(package.package, index);
    RegionReport report{region, "", region.Fault(), RegionVerdict::kNotExamined, ""};
    if (region.Begins()) {
        switch (index) {
        case 0:
            ExamineKernel(path, package.kernel, report);
            break;
        case 1:
            report.contents = "not examined";
            break;
        default:
            ExamineFileSystem(path, package.package.layout, report);
        }
    }
    if (report.fault.empty()) {
        report.fault = WhyTooLarge(index, region.size, partitions);
    }
    if (!report.fault.empty()) {
        report.verdict = RegionVerdict::kBad;
        report.reason = report.fault;
    }
    return report;
}

std::optional<KernelImage> FindKernel(const char *path, const Region &region)
{
    auto image = region.Begins() ? ReadKernelImage(path, region.start) : std::nullopt;
    return image && image->header.magic == kImageMagic ? image : std::nullopt;
}

} // namespace

Report Examine(const char *path, const Package &package,
               const std::optional<PartitionSizes> &partitions)
{
    Report report{package,
                  Judge(path, {false, 0, package.layout.version}).reason,
                  {},
                  FindKernel(path, RegionOf(package, 0))};
    for (size_t i = 0; i < report.regions.size(); ++i) {
        report.regions[i] = ExamineRegion(path, report, i, partitions);
    }
    return report;
}
