#include <array>
#include <cinttypes>
#include <cstdio>
#include <ctime>

#include "tools/command_line.h"
#include "tools/json.h"
#include "tools/progress.h"
#include "tools/report.h"
#include "tools/sha256.h"
#include "tools/text.h"
#include "tools/verdict.h"

namespace
{

std::string DateOf(const ImageHeader &header, const char *format)
{
    const std::time_t created = header.time;
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), format, std::gmtime(&created));
    return date.data();
}

// ---- For people ---------------------------------------------------------------------------------

void PrintRegions(const Report &report)
{
    std::puts("\nregion      offset        size  contents");
    for (size_t i = 0; i < report.regions.size(); ++i) {
        const RegionReport &region = report.regions[i];
        std::printf("%6zu  %10" PRId64 "  %10" PRId64 "  %s%s%s\n", i + 1, region.region.start,
                    region.region.size, region.contents.c_str(),
                    region.contents.empty() || region.fault.empty() ? "" : "; ",
                    region.fault.c_str());
    }
}

void PrintCrc(const char *name, uint32_t stated, uint32_t computed)
{
    if (stated == computed) {
        std::printf("  %s      %08x, holds\n", name, stated);
    } else {
        std::printf("  %s      %08x, does not hold: computed %08x\n", name, stated, computed);
    }
}

void PrintKernel(const KernelImage &image, const Region &region)
{
    const ImageHeader &header = image.header;
    const int64_t beyond = int64_t{ImageHeader::kSize} + header.data_size - region.size;
    std::puts("\nkernel image");
    std::printf("  name            %s\n",
                Printable({header.name.data(), header.name.size()}).c_str());
    std::printf("  created         %s\n", DateOf(header, "%Y-%m-%d %H:%M:%S UTC").c_str());
    std::printf("  data size       %" PRIu32 " bytes%s\n", header.data_size,
                beyond > 0 ? Format(", %" PRId64 " of them behind region 1", beyond).c_str() : "");
    std::printf("  load, entry     0x%08x, 0x%08x\n", header.load_address, header.entry_point);
    std::printf("  architecture    %s\n", ArchitectureName(header).c_str());
    std::printf("  type            %s\n", TypeName(header).c_str());
    std::printf("  compression     %s\n", CompressionName(header).c_str());
    PrintCrc("header CRC", header.header_crc, header.computed_crc);
    PrintCrc("data CRC  ", header.data_crc, image.data_crc);
}

void PrintText(const Report &report)
{
    const Package &package = report.package;
    const int64_t expected = package.ExpectedFileSize();
    std::printf("layout      %d, header of %d bytes\n", package.header.version,
                package.layout.header_length);
    std::printf("marker      %s\n", MarkerText(package.header.magic).c_str());
    std::printf("file size   %" PRId64 " bytes, %s\n", package.file_size,
                expected == package.file_size
                    ? "header and regions"
                    : Format("but header and regions are %" PRId64, expected).c_str());
    if (report.refusal.empty()) {
        std::puts("verdict     a board with this marker and layout would accept it");
    } else {
        std::printf("verdict     a board would refuse it: %s\n", report.refusal.c_str());
    }
    PrintRegions(report);
    if (report.kernel) {
        PrintKernel(*report.kernel, report.regions[0].region);
    }
}

// ---- For scripts --------------------------------------------------------------------------------

std::string UpToZero(std::string_view text)
{
    return std::string{text.substr(0, text.find('\0'))};
}

std::string Hex(uint32_t word)
{
    return Format("%08x", word);
}

const char *NameOf(RegionVerdict verdict)
{
    switch (verdict) {
    case RegionVerdict::kOk:
        return "ok";
    case RegionVerdict::kBad:
        return "bad";
    case RegionVerdict::kNotExamined:
        break;
    }
    return "not examined";
}

/// Returns nothing if the hash of a complete region cannot be computed.
std::optional<std::string> RegionJson(const char *path, const Report &report, size_t index,
                                      const std::optional<PartitionSizes> &partitions)
{
    const RegionReport &found = report.regions[index];
    std::optional<std::string> hash = "";
    if (found.region.Fault().empty()) {
        hash = Sha256(path, found.region.start, found.region.size);
        if (!hash) {
            return std::nullopt;
        }
    }
    JsonObject json;
    json.AddNumber("number", static_cast<int64_t>(index) + 1);
    json.AddText("name", kRegionNames[index]);
    json.AddNumber("offset", found.region.start);
    json.AddNumber("size", found.region.size);
    json.AddJson("partition_size", partitions ? std::to_string((*partitions)[index]) : "null");
    json.AddTextOrNull("sha256", *hash);
    json.AddText("verdict", NameOf(found.verdict));
    json.AddTextOrNull("reason", found.reason);
    return json.Text();
}

std::string KernelJson(const KernelImage &image)
{
    const ImageHeader &header = image.header;
    JsonObject json;
    json.AddText("name", UpToZero({header.name.data(), header.name.size()}));
    json.AddText("created", DateOf(header, "%Y-%m-%dT%H:%M:%SZ"));
    json.AddNumber("data_size", header.data_size);
    json.AddText("load_address", "0x" + Hex(header.load_address));
    json.AddText("entry_point", "0x" + Hex(header.entry_point));
    json.AddText("operating_system", OperatingSystemName(header));
    json.AddText("architecture", ArchitectureName(header));
    json.AddText("type", TypeName(header));
    json.AddText("compression", CompressionName(header));
    json.AddText("header_crc", Hex(header.header_crc));
    json.AddText("header_crc_computed", Hex(header.computed_crc));
    json.AddText("data_crc", Hex(header.data_crc));
    json.AddText("data_crc_computed", Hex(image.data_crc));
    return json.Text();
}

/// Returns nothing if the file is no longer readable.
std::optional<std::string> PackageJson(const char *path, const Report &report,
                                       const std::optional<PartitionSizes> &partitions)
{
    std::string regions;
    for (size_t i = 0; i < report.regions.size(); ++i) {
        const auto region = RegionJson(path, report, i, partitions);
        if (!region) {
            return std::nullopt;
        }
        regions += (regions.empty() ? "" : ", ") + *region;
    }
    const std::string magic = MagicBytes(report.package.header.magic);
    JsonObject json;
    json.AddNumber("layout", report.package.header.version);
    json.AddNumber("header_size", report.package.layout.header_length);
    json.AddText("marker", UpToZero(magic));
    json.AddText("marker_word", Hex(report.package.header.magic));
    json.AddNumber("file_size", report.package.file_size);
    json.AddText("verdict", report.refusal.empty() ? "accepted" : "refused");
    json.AddTextOrNull("reason", report.refusal);
    json.AddJson("regions", "[" + regions + "]");
    json.AddJson("kernel", report.kernel ? KernelJson(*report.kernel) : "null");
    return json.Text();
}

bool Show(const char *path, const Arguments &arguments)
{
    const std::string unreadable = WhyUnreadable(path);
    if (!unreadable.empty()) {
        return Refuse(path, unreadable);
    }
    const auto opened = OpenByItself(path);
    if (const auto *refusal = std::get_if<HeaderRefusal>(&opened)) {
        return SayNoPackage(path, *refusal);
    }
    const Progress progress{Format("examining %s", path)};
    const auto &package = std::get<Package>(opened);
    const Report report = Examine(path, package, arguments.partitions);
    if (arguments.json) {
        const auto json = PackageJson(path, report, arguments.partitions);
        if (!json) {
            return Refuse(path, "changed while it was read");
        }
        std::puts(json->c_str());
    } else {
        PrintText(report);
    }
    WarnOfNegativeSizes(path, package);
    return true;
}

} // namespace

int RunInfo(const Arguments &arguments)
{
    return Show(arguments.operands[0], arguments) ? kExitDone : kExitRefused;
}
