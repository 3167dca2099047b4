#include "tools/examine.h"

#include <algorithm>
#include <utility>

#include "flash/crc32.h"
#include "flash/jffs2.h"
#include "tools/text.h"
#include "util/byte_order.h"
#include "util/file.h"

namespace
{

using CodeName = std::pair<int, const char *>;

std::string NameOf(int code, std::initializer_list<CodeName> names)
{
    const auto *known = std::ranges::find(names, code, &CodeName::first);
    return known != names.end() ? known->second : Text("code ", code);
}

std::string Describe(ImageFault fault, const KernelImage &image)
{
    const ImageHeader &header = image.header;
    const std::array<std::string, 8> texts{
        "", // in the order of ImageFault
        "the file ends within the image's header",
        Text("magic ", Hex(header.magic), ", expected ", Hex(kImageMagic)),
        Text("header CRC ", Hex(header.header_crc), ", its bytes give ", Hex(header.computed_crc)),
        Text("data CRC ", Hex(header.data_crc), ", the ", header.data_size,
             " bytes behind the header give ", Hex(image.data_crc)),
        Text("architecture ", image.architecture, ", expected ARM"),
        Text("type ", image.type, ", expected kernel, standalone program or multi-file image"),
        Text("compression ", image.compression, ", expected none or gzip")};
    return texts.at(static_cast<size_t>(fault));
}

/// Reads the image, also a damaged one. If the board's check found no fault, the data is not read
/// again.
KernelImage ReadKernel(const char *path, int64_t offset, bool is_good)
{
    KernelImage image{};
    ImageHeader &header = image.header;
    const File file{path, "r"};
    if (file && ReadImageHeader(file.get(), offset, header)) {
        image.data_crc =
            is_good ? header.data_crc : CFlash_Crc32Stream(0, file.get(), header.data_size);
    }
    image.operating_system =
        NameOf(header.operating_system, {{2, "NetBSD"}, {5, "Linux"}, {17, "firmware"}});
    image.architecture =
        NameOf(header.architecture, {{2, "ARM"}, {3, "x86"}, {5, "MIPS"}, {22, "AArch64"}});
    image.type = NameOf(
        header.type,
        {{1, "standalone program"}, {2, "kernel"}, {3, "RAM disk"}, {4, "multi-file image"}});
    image.compression = NameOf(
        header.compression,
        {{0, "not compressed"}, {1, "gzip"}, {2, "bzip2"}, {3, "lzma"}, {4, "lzo"}, {5, "lz4"}});
    image.fault = is_good ? "" : Describe(FindImageFault(path, offset, header), image);
    return image;
}

/// Whether the erase block holds JFFS2 nodes. One with only the marker for 'erased' is free. The
/// CRC of a node's header has no complements.
bool IsUsed(const InputFile &file, int64_t start)
{
    std::array<uint8_t, 24> bytes{}; // the header of a node, and what follows a marker
    file.Read(bytes.data(), bytes.size(), start);
    const bool is_node = bytes[0] == 0x85 && bytes[1] == 0x19 &&
                         LoadLe32(&bytes[8]) == ~CFlash_Crc32(~uint32_t{0}, bytes.data(), 8);
    const bool is_marker = bytes[2] == 0x03 && bytes[3] == 0x20;
    return is_node && (!is_marker || std::ranges::count(bytes, 0xFF) < 12);
}

/// Compares the /etc image with its partition. Returns what is wrong, or an empty text.
std::string CompareEtc(const InputFile &file, const Region &region, const Partition &partition,
                       std::vector<std::string> &warnings)
{
    const int64_t block = partition.erase_block;
    if (region.size < partition.size) {
        warnings.push_back(Text("region 3 does not fill its partition: ", region.size,
                                " bytes, mtd3 has ", partition.size,
                                "; old files come back if a block behind it fails to erase"));
    }
    const int64_t all = partition.size / block;
    int64_t used = 0;
    for (int64_t at = 0; at < region.size; at += block) {
        used += IsUsed(file, region.start + at) ? 1 : 0;
    }
    // JFFS2 writes only while as many blocks are free: for deletions 2, and for overhead 2 % of the
    // partition and 100 bytes for each block, rounded up.
    const int64_t kept = 2 + (partition.size / 50 + 100 * all + block - 1) / block;
    if (used > 0 && all - used == kept) {
        warnings.push_back("region 3 has room for the settings only in its last used block");
    }
    return used == 0 || all - used >= kept
               ? ""
               : Text("too full to take the settings back: JFFS2 writes with ", kept,
                      " free blocks, ", used, " of ", all, " are used");
}

/// A text such as " (it looks like a bare kernel image)"; empty for an unknown kind of file.
std::string WhatItLooksLike(const InputFile &file)
{
    std::array<uint8_t, 2> bytes{};
    file.Read(bytes.data(), bytes.size(), 0);
    const int magic = bytes[0] << 8 | bytes[1];
    const char *kind = magic == 0x2705   ? "bare kernel image"
                       : magic == 0x8519 ? "JFFS2 image"
                       : magic == 0x1F8B ? "gzip file"
                                         : nullptr;
    return kind == nullptr ? "" : Text(" (it looks like a ", kind, ")");
}

std::string Describe(const HeaderRefusal &refusal, const PackageExpectation &expectation,
                     const std::string &kind)
{
    const auto &[magic, version, size] = refusal.header;
    const std::array<std::string, 4> texts{
        "unreadable: it ends within its header", // in the order of HeaderFault
        Text("wrong marker: found ", MarkerText(magic), ", the board's is ",
             MarkerText(expectation.marker)),
        Text("wrong layout version: found ", version, ", the board expects ", expectation.version,
             kind),
        Text("unknown layout: found ", version, ", there are ", LayoutNames(" and "))};
    return texts.at(static_cast<size_t>(refusal.fault));
}

std::string Describe(ContentsFault fault, const Package &package, const std::string &kernel_fault,
                     const ForeignBlock &block)
{
    const std::array<std::string, 4> texts{
        "", // in the order of ContentsFault
        Text("wrong file size: found ", package.file_size, " bytes, header and regions are ",
             package.ExpectedFileSize()),
        "bad kernel image: " + kernel_fault,
        Text("bad /etc file system: the 64 KiB block at ", block.start - package.RegionStart(2),
             " of region 3 begins with ", Hex(block.magic[0], 2), ' ', Hex(block.magic[1], 2),
             ", not 85 19")};
    return texts.at(static_cast<size_t>(fault));
}

/// Why the file does not hold the whole region, or empty.
std::string PlaceFault(const Region &region, int64_t file_size)
{
    return region.size < 0                                                      ? "of negative size"
           : region.start < 0 || (region.start >= file_size && region.size > 0) ? "outside the file"
           : region.start + region.size > file_size
               ? Text("cut short, ", file_size - region.start, " bytes are there")
               : "";
}

/// What a region seems to hold, and what a board says to that.
struct Contents {
    const char *name;
    const char *verdict;
    std::string fault;
};

/// Compares the region with its partition, which no board does, and then says what it holds.
void JudgeRegion(const InputFile &file, size_t index, const Contents &contents, const Board &board,
                 Examination &found)
{
    Region &region = found.regions[index];
    if (region.is_whole) {
        region.reason = WhyTooLarge(index, region.size, board);
        if (!board.empty() && index == 2 && region.reason.empty()) {
            region.reason = CompareEtc(file, region, board[3], found.warnings);
        }
    } else if (region.size < 0) {
        found.warnings.push_back(Text("region ", index + 1, " has the negative size ", region.size,
                                      "; a board does not check that"));
    }
    if (!region.reason.empty()) {
        region.verdict = "bad";
        // A board refuses most packages with an incomplete region, but not all.
        if (!board.empty() && (region.is_whole || found.refusal.empty())) {
            found.misfits.push_back(Text("region ", index + 1, " is ", region.reason));
            found.reason = found.reason.empty() ? found.misfits[0] : found.reason;
        }
    }
    if (region.size > 0 && region.start >= 0 && region.start < file.size()) {
        region.contents = contents.name;
        region.verdict = region.reason.empty() ? contents.verdict : "bad";
        region.reason = region.reason.empty() ? contents.fault : region.reason;
    }
}

} // namespace

void Examination::PrintWarnings(const std::string &name) const
{
    for (const std::string &warning : warnings) {
        PrintError(Text("warning: ", name, ": ", warning));
    }
}

Examination Locate(const InputFile &file, const Expectation &expectation)
{
    Examination found{};
    std::array<uint8_t, 4> version{};
    file.Read(version.data(), version.size(), 4);
    const auto stated = static_cast<int32_t>(LoadLe32(version.data()));
    const auto asked = expectation.value_or(PackageExpectation{false, 0, stated});
    const auto opened = ReadPackage(file.path(), asked);
    if (const auto *refused = std::get_if<HeaderRefusal>(&opened)) {
        const std::string kind = WhatItLooksLike(file);
        found.reason = found.refusal = Describe(*refused, asked, kind);
        FailIf(!expectation, file.name(), ": not a firmware package",
               kind.empty() ? ": " + found.refusal : kind);
        return found;
    }
    found.package = std::get<Package>(opened);
    for (size_t i = 0; i < found.regions.size(); ++i) {
        Region &region = found.regions[i];
        region.start = found.package->RegionStart(i);
        region.size = found.package->header.size[i];
        region.reason = PlaceFault(region, found.package->file_size);
        region.is_whole = region.reason.empty();
    }
    return found;
}

Examination Examine(const InputFile &file, const Expectation &expectation, const Board &board)
{
    Examination found = Locate(file, expectation);
    if (!found.package) {
        return found;
    }
    const Package &package = *found.package;
    const ContentsFault fault = FindContentsFault(file.path(), package);
    const bool is_good = fault == ContentsFault::kNone || fault == ContentsFault::kBadFileSystem;
    found.kernel = ReadKernel(file.path(), package.RegionStart(0), is_good);
    const File stream{file.path(), "r"};
    const auto block =
        stream ? FindForeignBlock(stream.get(), package.RegionStart(2)) : std::nullopt;
    FailIf(fault == ContentsFault::kBadFileSystem && !block, file.name(),
           ": changed while it was read");
    found.refusal = Describe(fault, package, found.kernel.fault, block.value_or(ForeignBlock{}));
    found.reason = found.refusal;
    const bool has_image = found.kernel.header.magic == kImageMagic;
    const bool is_checked = package.layout.checks_file_system;
    const char *no_jffs2 = "not JFFS2 at every 64 KiB";
    JudgeRegion(file, 0,
                {has_image ? "kernel image" : "no kernel image",
                 found.kernel.fault.empty() ? "ok" : "bad", found.kernel.fault},
                board, found);
    JudgeRegion(file, 1, {"not examined", "not examined", ""}, board, found);
    JudgeRegion(file, 2,
                block ? Contents{"", is_checked ? "bad" : "not examined", no_jffs2}
                      : Contents{"JFFS2 at every 64 KiB", "ok", ""},
                board, found);
    if (block && !is_checked) {
        found.warnings.push_back(Text("region 3 is ", no_jffs2,
                                      "; a board does not check that in layout ",
                                      package.header.version));
    }
    return found;
}
