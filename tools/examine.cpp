#include "tools/examine.h"

#include <cinttypes>
#include <utility>

#include "flash/crc32.h"
#include "flash/jffs2.h"
#include "tools/text.h"
#include "util/file.h"

namespace
{

// ---- The kernel image ---------------------------------------------------------------------------

using CodeName = std::pair<uint8_t, const char *>;

constexpr CodeName kOperatingSystems[] = {{2, "NetBSD"}, {5, "Linux"}, {17, "firmware"}};
constexpr CodeName kArchitectures[] = {{2, "ARM"},     {3, "x86"},      {5, "MIPS"},
                                       {7, "PowerPC"}, {22, "AArch64"}, {24, "x86-64"}};
constexpr CodeName kTypes[] = {{1, "standalone program"}, {2, "kernel"},     {3, "RAM disk"},
                               {4, "multi-file image"},   {5, "firmware"},   {6, "script"},
                               {7, "file system"},        {8, "device tree"}};
constexpr CodeName kCompressions[] = {{0, "not compressed"}, {1, "gzip"}, {2, "bzip2"},
                                      {3, "lzma"},           {4, "lzo"},  {5, "lz4"}};

std::string NameOf(uint8_t code, std::span<const CodeName> names)
{
    for (const auto &[known, name] : names) {
        if (known == code) {
            return name;
        }
    }
    return Format("code %d", code);
}

std::string Describe(ImageFault fault, const KernelImage &image)
{
    const ImageHeader &header = image.header;
    switch (fault) {
    case ImageFault::kNone:
        break;
    case ImageFault::kUnreadable:
        return "the file ends within the image's header";
    case ImageFault::kBadMagic:
        return Format("magic %08x, expected %08x", header.magic, kImageMagic);
    case ImageFault::kBadHeaderCrc:
        return Format("header CRC %08x, its bytes give %08x", header.header_crc,
                      header.computed_crc);
    case ImageFault::kBadDataCrc:
        return Format("data CRC %08x, the %u bytes behind the header give %08x", header.data_crc,
                      header.data_size, image.data_crc);
    case ImageFault::kWrongArchitecture:
        return Format("architecture %s, expected ARM", image.architecture.c_str());
    case ImageFault::kWrongType:
        return Format("type %s, expected kernel, standalone program or multi-file image",
                      image.type.c_str());
    case ImageFault::kWrongCompression:
        return Format("compression %s, expected none or gzip", image.compression.c_str());
    }
    return "";
}

/// Reads the image, also a damaged one. If the board's check found no fault, the data is not read
/// again.
KernelImage ReadKernel(const char *path, int64_t offset, bool is_good)
{
    KernelImage image{};
    ImageHeader &header = image.header;
    const File file{path, "r"};
    ImageFault fault = ImageFault::kNone;
    if (!is_good || !file || !ReadImageHeader(file.get(), offset, header)) {
        fault = FindImageFault(path, offset, header);
    }
    image.data_crc = header.data_crc;
    if ((fault == ImageFault::kBadHeaderCrc || fault == ImageFault::kBadDataCrc) && file &&
        fseeko(file.get(), offset + int64_t{ImageHeader::kSize}, SEEK_SET) == 0) {
        image.data_crc = CFlash_Crc32Stream(0, file.get(), header.data_size);
    }
    image.operating_system = NameOf(header.operating_system, kOperatingSystems);
    image.architecture = NameOf(header.architecture, kArchitectures);
    image.type = NameOf(header.type, kTypes);
    image.compression = NameOf(header.compression, kCompressions);
    image.fault = Describe(fault, image);
    return image;
}

// ---- The package --------------------------------------------------------------------------------

/// A text such as " (it looks like a bare kernel image)"; empty for an unknown kind of file.
std::string WhatItLooksLike(const InputFile &file)
{
    constexpr std::pair<std::array<uint8_t, 2>, const char *> kKinds[] = {
        {{0x27, 0x05}, "bare kernel image"},
        {{0x85, 0x19}, "JFFS2 image"},
        {{0x1F, 0x8B}, "gzip file"}};
    std::array<uint8_t, 2> found{};
    file.Read(found.data(), found.size(), 0);
    for (const auto &[magic, name] : kKinds) {
        if (magic == found) {
            return Format(" (it looks like a %s)", name);
        }
    }
    return "";
}

std::string Describe(const HeaderRefusal &refusal, const PackageExpectation &expectation,
                     const std::string &kind)
{
    const FirmwarePackageHeader &found = refusal.header;
    switch (refusal.fault) {
    case HeaderFault::kUnreadable:
        return "unreadable: it ends within its header";
    case HeaderFault::kWrongMarker:
        return Format("wrong marker: found %s, the board's is %s", MarkerText(found.magic).c_str(),
                      MarkerText(expectation.marker).c_str());
    case HeaderFault::kWrongVersion:
        return Format("wrong layout version: found %d, the board expects %d", found.version,
                      expectation.version) +
               kind;
    case HeaderFault::kUnknownLayout:
        return Format("unknown layout: found %d, there are ", found.version) + LayoutNames(" and ");
    }
    return "";
}

std::string Describe(ContentsFault fault, const Examination &found,
                     const std::optional<ForeignBlock> &block)
{
    const Package &package = *found.package;
    switch (fault) {
    case ContentsFault::kNone:
        break;
    case ContentsFault::kWrongFileSize:
        return Format("wrong file size: found %" PRId64 " bytes, header and regions are %" PRId64,
                      package.file_size, package.ExpectedFileSize());
    case ContentsFault::kBadKernelImage:
        return "bad kernel image: " + found.kernel.fault;
    case ContentsFault::kBadFileSystem:
        return !block ? "it changed while it was read"
                      : Format("bad /etc file system: the 64 KiB block at %" PRId64
                               " of region 3 begins with %02x %02x, not 85 19",
                               block->start - package.RegionStart(2), block->magic[0],
                               block->magic[1]);
    }
    return "";
}

std::string PlaceFault(const Region &region, int64_t file_size)
{
    if (region.size < 0) {
        return "of negative size";
    }
    if (region.start < 0 || (region.start >= file_size && region.size > 0)) {
        return "outside the file";
    }
    return region.start + region.size <= file_size
               ? ""
               : Format("cut short, %" PRId64 " bytes are there", file_size - region.start);
}

/// Compares the /etc image with its partition.
void CompareEtc(const InputFile &file, int64_t partition, Examination &found)
{
    Region &region = found.regions[2];
    if (region.size < partition) {
        found.warnings.push_back(Format("region 3 does not fill its partition: %" PRId64
                                        " bytes, mtd3 has %" PRId64
                                        "; old files come back if a block behind it fails to erase",
                                        region.size, partition));
    }
    const EtcBlocks blocks = CountEtcBlocks(file, region.start, region.size, partition);
    const int64_t spare = blocks.all - blocks.used - blocks.kept;
    if (blocks.used > 0 && spare < 0) {
        region.fault = Format("too full to take the settings back: JFFS2 writes with %" PRId64
                              " free blocks, %" PRId64 " of %" PRId64 " are used",
                              blocks.kept, blocks.used, blocks.all);
    } else if (blocks.used > 0 && spare == 0) {
        found.warnings.push_back("region 3 has room for the settings only in its last used block");
    }
}

/// Compares a region with what a board requires, and with its partition.
void ExamineRegion(const InputFile &file, size_t index, const Board &board, Examination &found)
{
    Region &region = found.regions[index];
    if (region.is_whole) {
        region.fault = WhyTooLarge(index, region.size, board);
        if (board && index == 2 && region.fault.empty()) {
            CompareEtc(file, (*board)[index], found);
        }
    } else if (region.size < 0) {
        found.warnings.push_back(Format("region %zu has the negative size %" PRId64
                                        "; a board does not check that",
                                        index + 1, region.size));
    }
    if (!region.fault.empty()) {
        region.verdict = "bad";
        region.reason = region.fault;
    }
    // A board refuses most packages with an incomplete region, but not all.
    if (board && !region.fault.empty() && (region.is_whole || found.refusal.empty())) {
        found.misfits.push_back(Format("region %zu is %s", index + 1, region.fault.c_str()));
    }
}

/// Says what the regions seem to hold, and what a board says to that.
void JudgeContents(bool is_jffs2, Examination &found)
{
    auto &[kernel, second, etc] = found.regions;
    kernel.contents = found.kernel.header.magic == kImageMagic ? "kernel image" : "no kernel image";
    kernel.reason = found.kernel.fault;
    kernel.verdict = kernel.reason.empty() ? "ok" : "bad";
    second.contents = "not examined";
    etc.contents = is_jffs2 ? "JFFS2 at every 64 KiB" : "not JFFS2 at every 64 KiB";
    etc.reason = is_jffs2 ? "" : etc.contents;
    if (is_jffs2 || found.package->layout.checks_file_system) {
        etc.verdict = is_jffs2 ? "ok" : "bad";
    } else {
        found.warnings.push_back(Format("region 3 is %s; a board does not check that in layout %d",
                                        etc.contents.c_str(), found.package->header.version));
    }
    for (Region &region : found.regions) {
        if (region.size <= 0 || region.start < 0 || region.start >= found.package->file_size) {
            region.contents = region.reason = "";
            region.verdict = "not examined";
        }
    }
}

} // namespace

std::string Examination::WhyNot() const
{
    return !refusal.empty() || misfits.empty() ? refusal : misfits[0];
}

void Examination::PrintWarnings(const std::string &name) const
{
    for (const std::string &warning : warnings) {
        PrintError(Format("warning: %s: %s", name.c_str(), warning.c_str()));
    }
}

Examination Locate(const InputFile &file, const std::optional<PackageExpectation> &expectation)
{
    Examination found{};
    PackageExpectation asked =
        expectation.value_or(PackageExpectation{false, 0, kPackageLayouts[0].version});
    auto opened = ReadPackage(file.path(), asked);
    const auto *refused = std::get_if<HeaderRefusal>(&opened);
    if (!expectation && refused != nullptr && refused->fault == HeaderFault::kWrongVersion) {
        asked.version = refused->header.version;
        opened = ReadPackage(file.path(), asked);
        refused = std::get_if<HeaderRefusal>(&opened);
    }
    if (refused != nullptr) {
        const std::string kind = WhatItLooksLike(file);
        found.refusal = Describe(*refused, asked, kind);
        if (!expectation) {
            Fail(file.name(),
                 "not a firmware package" + (kind.empty() ? ": " + found.refusal : kind));
        }
        return found;
    }
    found.package = std::get<Package>(opened);
    for (size_t i = 0; i < found.regions.size(); ++i) {
        Region &region = found.regions[i];
        region.start = found.package->RegionStart(i);
        region.size = found.package->header.size[i];
        region.fault = PlaceFault(region, found.package->file_size);
        region.is_whole = region.fault.empty();
    }
    return found;
}

Examination Examine(const InputFile &file, const std::optional<PackageExpectation> &expectation,
                    const Board &board)
{
    Examination found = Locate(file, expectation);
    if (!found.package) {
        return found;
    }
    const ContentsFault fault = FindContentsFault(file.path(), *found.package);
    const bool is_good = fault == ContentsFault::kNone || fault == ContentsFault::kBadFileSystem;
    found.kernel = ReadKernel(file.path(), found.package->RegionStart(0), is_good);
    const File stream{file.path(), "r"};
    const auto block =
        stream ? FindForeignBlock(stream.get(), found.package->RegionStart(2)) : std::nullopt;
    found.refusal = Describe(fault, found, block);
    JudgeContents(!block, found);
    for (size_t i = 0; i < found.regions.size(); ++i) {
        ExamineRegion(file, i, board, found);
    }
    return found;
}
