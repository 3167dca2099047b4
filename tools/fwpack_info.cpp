#include <cinttypes>
#include <ctime>
#include <future>
#include <initializer_list>

#include "tools/examine.h"
#include "tools/options.h"
#include "tools/sha256.h"

namespace
{

/// Of the package and the regions, as far as the file holds them completely.
struct Hashes {
    std::string package;
    std::array<std::string, 3> regions;
};

std::string DateOf(const ImageHeader &header, const char *format)
{
    const std::time_t created = header.time;
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), format, std::gmtime(&created));
    return date.data();
}

// ---- For people ---------------------------------------------------------------------------------

std::string CrcText(uint32_t stated, uint32_t computed)
{
    return Format("%08x, ", stated) +
           (stated == computed ? "ok" : Format("WRONG: computed %08x", computed));
}

void PrintKernel(const KernelImage &image, int64_t region_size)
{
    const ImageHeader &header = image.header;
    const int64_t beyond = int64_t{ImageHeader::kSize} + header.data_size - region_size;
    std::printf("\nkernel image\n  name              %s\n  created           %s\n"
                "  data size         %" PRIu32 " bytes%s\n  load, entry       0x%08x, 0x%08x\n"
                "  operating system  %s\n  architecture      %s\n  type              %s\n"
                "  compression       %s\n  header CRC        %s\n  data CRC          %s\n",
                Printable({header.name.data(), header.name.size()}).c_str(),
                DateOf(header, "%Y-%m-%d %H:%M:%S UTC").c_str(), header.data_size,
                beyond > 0 ? Format(", %" PRId64 " of them behind region 1", beyond).c_str() : "",
                header.load_address, header.entry_point, image.operating_system.c_str(),
                image.architecture.c_str(), image.type.c_str(), image.compression.c_str(),
                CrcText(header.header_crc, header.computed_crc).c_str(),
                CrcText(header.data_crc, image.data_crc).c_str());
}

void PrintHash(const char *label, const std::string &hash)
{
    if (!hash.empty()) {
        std::printf("%s%s\n", label, hash.c_str());
    }
}

void PrintText(const Examination &found, const Hashes &hashes)
{
    const Package &package = *found.package;
    const int64_t expected = package.ExpectedFileSize();
    const char *verdict = !found.refusal.empty() ? "a board would refuse it: "
                          : !found.misfits.empty()
                              ? "a board would accept it, but "
                              : "a board with this marker and layout would accept it";
    std::printf("layout      %d, header of %d bytes\nmarker      %s\nfile size   %" PRId64
                " bytes, %s\n",
                package.header.version, package.layout.header_length,
                MarkerText(package.header.magic).c_str(), package.file_size,
                expected == package.file_size
                    ? "header and regions"
                    : Format("but header and regions are %" PRId64, expected).c_str());
    PrintHash("SHA-256     ", hashes.package);
    std::printf("verdict     %s%s\n\nregion      offset        size  contents\n", verdict,
                found.WhyNot().c_str());
    for (size_t i = 0; i < found.regions.size(); ++i) {
        const auto &[start, size, is_whole, fault, contents, region_verdict, reason] =
            found.regions[i];
        std::printf("%6zu  %10" PRId64 "  %10" PRId64 "  %s%s%s\n", i + 1, start, size,
                    contents.c_str(), contents.empty() || fault.empty() ? "" : "; ", fault.c_str());
        PrintHash("        SHA-256 ", hashes.regions[i]);
    }
    if (found.kernel.header.magic == kImageMagic) {
        PrintKernel(found.kernel, found.regions[0].size);
    }
}

// ---- For scripts --------------------------------------------------------------------------------

/// The text in quotes; null if it is empty. Bytes that are not printable ASCII become the code
/// points of the same number, so a text of any bytes is valid.
std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        const bool is_plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        quoted += is_plain ? std::string{c} : Format("\\u%04x", static_cast<unsigned char>(c));
    }
    return text.empty() ? "null" : quoted + '"';
}

/// The same up to the first zero byte, also of an empty text.
std::string QuotedName(std::string_view bytes)
{
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    return text.empty() ? "\"\"" : Quoted(text);
}

std::string Hex(uint32_t word, const char *prefix = "")
{
    return Format("\"%s%08x\"", prefix, word);
}

/// An object with one member a line, `depth` objects and arrays deep.
std::string Object(int depth, std::initializer_list<std::pair<const char *, std::string>> members)
{
    std::string object;
    const std::string indent = Format("\n%*s", 2 * depth, "");
    for (const auto &[name, json] : members) {
        object += Format("%s%s  \"%s\": ", object.empty() ? "{" : ",", indent.c_str(), name) + json;
    }
    return object + indent + "}";
}

std::string RegionJson(const Region &region, size_t index, const std::string &hash,
                       const Board &board)
{
    return Object(2, {{"number", std::to_string(index + 1)},
                      {"name", Quoted(kRegionNames[index])},
                      {"offset", std::to_string(region.start)},
                      {"size", std::to_string(region.size)},
                      {"partition_size", board ? std::to_string((*board)[index]) : "null"},
                      {"sha256", Quoted(hash)},
                      {"verdict", Quoted(region.verdict)},
                      {"reason", Quoted(region.reason)}});
}

std::string KernelJson(const KernelImage &image)
{
    const ImageHeader &header = image.header;
    return Object(1, {{"name", QuotedName({header.name.data(), header.name.size()})},
                      {"created", Quoted(DateOf(header, "%Y-%m-%dT%H:%M:%SZ"))},
                      {"data_size", std::to_string(header.data_size)},
                      {"load_address", Hex(header.load_address, "0x")},
                      {"entry_point", Hex(header.entry_point, "0x")},
                      {"operating_system", Quoted(image.operating_system)},
                      {"architecture", Quoted(image.architecture)},
                      {"type", Quoted(image.type)},
                      {"compression", Quoted(image.compression)},
                      {"header_crc", Hex(header.header_crc)},
                      {"header_crc_computed", Hex(header.computed_crc)},
                      {"data_crc", Hex(header.data_crc)},
                      {"data_crc_computed", Hex(image.data_crc)}});
}

std::string PackageJson(const Examination &found, const Hashes &hashes, const Board &board)
{
    const Package &package = *found.package;
    std::string regions;
    for (size_t i = 0; i < found.regions.size(); ++i) {
        regions += i == 0 ? "[\n    " : ",\n    ";
        regions += RegionJson(found.regions[i], i, hashes.regions[i], board);
    }
    return Object(0, {{"verdict", Quoted(found.WhyNot().empty() ? "accepted" : "refused")},
                      {"reason", Quoted(found.WhyNot())},
                      {"layout", std::to_string(package.header.version)},
                      {"header_size", std::to_string(package.layout.header_length)},
                      {"marker", QuotedName(MagicBytes(package.header.magic))},
                      {"marker_word", Hex(package.header.magic)},
                      {"file_size", std::to_string(package.file_size)},
                      {"sha256", Quoted(hashes.package)},
                      {"regions", regions + "\n  ]"},
                      {"kernel", found.kernel.header.magic == kImageMagic ? KernelJson(found.kernel)
                                                                          : "null"}});
}

int Info(const Options &options, const Board &board)
{
    const InputFile file{options.operands[0]};
    const Examination found = Examine(file, std::nullopt, board);
    Hashes hashes;
    // On another processor, because the regions together are as long as the package.
    auto whole = std::async(std::launch::async, [&] {
        return found.package->ExpectedFileSize() == file.size() ? Sha256(file, 0, file.size()) : "";
    });
    for (size_t i = 0; i < hashes.regions.size(); ++i) {
        const Region &region = found.regions[i];
        hashes.regions[i] = region.is_whole ? Sha256(file, region.start, region.size) : "";
    }
    hashes.package = whole.get();
    if (options.Has('j')) {
        std::puts(PackageJson(found, hashes, board).c_str());
    } else {
        PrintText(found, hashes);
    }
    found.PrintWarnings(file.name());
    return kExitDone;
}

} // namespace

const Command kInfo{
    "info",
    "usage: fwpack info [OPTION...] PACKAGE\n\n"
    "Shows the contents of the PACKAGE ('-': standard input), even a damaged one, and whether\n"
    "it can be installed on a board with its marker and layout.\n\n"
    "  -j, --json             print a JSON object, for scripts\n"
    "  -p, --partitions SIZES the bytes of mtd1 to mtd3, such as 0x580000,8M,2048K\n"
    "  -t, --mtd FILE         the same, from a saved /proc/mtd or a table for flash-image\n",
    "",
    1,
    1,
    Info};
