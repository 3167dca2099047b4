#include <ctime>
#include <future>
#include <initializer_list>
#include <iomanip>

#include "tools/examine.h"
#include "tools/options.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack info [OPTION...] PACKAGE\n\n"
    "Shows the contents of the PACKAGE ('-': standard input), even a damaged one, and whether\n"
    "it can be installed on a board with its marker and layout.\n\n"
    "  -j, --json             print a JSON object, for scripts\n"
    "  -p, --partitions SIZES the bytes of mtd1 to mtd3, such as 0x580000,8M,2048K\n"
    "  -t, --mtd FILE         the same, from a saved /proc/mtd or a table for flash-image\n";

/// A larger package fits no flash of a board.
constexpr int64_t kLargestHashed = 256 << 20;

/// Hashes the package and the regions, as far as the file holds them completely.
void Hash(const InputFile &file, Examination &found)
{
    if (Sha256 == nullptr || file.size() > kLargestHashed) {
        return;
    }
    // On another processor, because the regions together are as long as the package.
    auto whole = std::async(std::launch::async, [&] {
        return found.package->ExpectedFileSize() == file.size() ? Sha256(file, 0, file.size()) : "";
    });
    for (Region &region : found.regions) {
        region.sha256 = region.is_whole ? Sha256(file, region.start, region.size) : "";
    }
    found.sha256 = whole.get();
}

std::string DateOf(const ImageHeader &header, const char *format)
{
    const std::time_t created = header.time;
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), format, std::gmtime(&created));
    return date.data();
}

std::string CrcText(uint32_t stated, uint32_t computed)
{
    return Hex(stated) + (stated == computed ? ", ok" : Text(", WRONG: computed ", Hex(computed)));
}

void PrintKernel(const KernelImage &image, int64_t region_size)
{
    const ImageHeader &header = image.header;
    const int64_t beyond = int64_t{ImageHeader::kSize} + header.data_size - region_size;
    Print("\nkernel image");
    Print("  name              ", Printable({header.name.data(), header.name.size()}));
    Print("  created           ", DateOf(header, "%Y-%m-%d %H:%M:%S UTC"));
    Print("  data size         ", header.data_size, " bytes",
          beyond > 0 ? Text(", ", beyond, " of them behind region 1") : "");
    Print("  load, entry       0x", Hex(header.load_address), ", 0x", Hex(header.entry_point));
    Print("  operating system  ", image.operating_system);
    Print("  architecture      ", image.architecture);
    Print("  type              ", image.type);
    Print("  compression       ", image.compression);
    Print("  header CRC        ", CrcText(header.header_crc, header.computed_crc));
    Print("  data CRC          ", CrcText(header.data_crc, image.data_crc));
}

void PrintText(const Examination &found)
{
    const Package &package = *found.package;
    const int64_t expected = package.ExpectedFileSize();
    const char *verdict = !found.refusal.empty() ? "a board would refuse it: "
                          : !found.misfits.empty()
                              ? "a board would accept it, but "
                              : "a board with this marker and layout would accept it";
    Print("layout      ", package.header.version, ", header of ", package.layout.header_length,
          " bytes");
    Print("marker      ", MarkerText(package.header.magic));
    Print("file size   ", package.file_size, " bytes, ",
          expected == package.file_size ? "header and regions"
                                        : Text("but header and regions are ", expected));
    if (!found.sha256.empty()) {
        Print("SHA-256     ", found.sha256);
    }
    Print("verdict     ", verdict, found.reason);
    Print("\nregion      offset        size  contents");
    for (size_t i = 0; i < found.regions.size(); ++i) {
        const Region &region = found.regions[i];
        const bool has_both = *region.contents != '\0' && !region.reason.empty();
        Print(std::setw(6), i + 1, std::setw(12), region.start, std::setw(12), region.size, "  ",
              region.contents, has_both ? "; " : "", region.reason,
              region.sha256.empty() ? "" : "\n        SHA-256 " + region.sha256);
    }
    if (found.kernel.header.magic == kImageMagic) {
        PrintKernel(found.kernel, found.regions[0].size);
    }
}

/// The text up to its first zero byte, in quotes. Bytes that are not printable ASCII become the
/// code points of the same number, so a text of any bytes is valid.
std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text.substr(0, text.find('\0'))) {
        const bool is_plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        quoted += is_plain ? std::string{c} : Text("\\u", Hex(static_cast<unsigned char>(c), 4));
    }
    return quoted + '"';
}

std::string QuotedOrNull(std::string_view text)
{
    return text.empty() ? "null" : Quoted(text);
}

using Members = std::initializer_list<std::pair<const char *, std::string>>;

/// An object with one member a line, `depth` objects and arrays deep.
std::string Object(size_t depth, Members members)
{
    std::string object;
    const std::string indent(2 * depth, ' ');
    for (const auto &[name, json] : members) {
        object += Text(object.empty() ? '{' : ',', '\n', indent, "  \"", name, "\": ", json);
    }
    return Text(object, '\n', indent, '}');
}

std::string RegionJson(const Region &region, size_t index, const Board &board)
{
    return Object(
        2, {{"number", std::to_string(index + 1)},
            {"name", Quoted(kRegionNames[index])},
            {"offset", std::to_string(region.start)},
            {"size", std::to_string(region.size)},
            {"partition_size", board.empty() ? "null" : std::to_string(board[index + 1].size)},
            {"sha256", QuotedOrNull(region.sha256)},
            {"verdict", Quoted(region.verdict)},
            {"reason", QuotedOrNull(region.reason)}});
}

std::string KernelJson(const KernelImage &image)
{
    const ImageHeader &header = image.header;
    return Object(1, {{"name", Quoted({header.name.data(), header.name.size()})},
                      {"created", Quoted(DateOf(header, "%Y-%m-%dT%H:%M:%SZ"))},
                      {"data_size", std::to_string(header.data_size)},
                      {"load_address", Quoted(Text("0x", Hex(header.load_address)))},
                      {"entry_point", Quoted(Text("0x", Hex(header.entry_point)))},
                      {"operating_system", Quoted(image.operating_system)},
                      {"architecture", Quoted(image.architecture)},
                      {"type", Quoted(image.type)},
                      {"compression", Quoted(image.compression)},
                      {"header_crc", Quoted(Hex(header.header_crc))},
                      {"header_crc_computed", Quoted(Hex(header.computed_crc))},
                      {"data_crc", Quoted(Hex(header.data_crc))},
                      {"data_crc_computed", Quoted(Hex(image.data_crc))}});
}

std::string PackageJson(const Examination &found, const Board &board)
{
    const Package &package = *found.package;
    const std::string reason = found.reason;
    const bool has_kernel = found.kernel.header.magic == kImageMagic;
    std::string regions;
    for (size_t i = 0; i < found.regions.size(); ++i) {
        regions += i == 0 ? "[\n    " : ",\n    ";
        regions += RegionJson(found.regions[i], i, board);
    }
    return Object(0, {{"verdict", Quoted(reason.empty() ? "accepted" : "refused")},
                      {"reason", QuotedOrNull(reason)},
                      {"layout", std::to_string(package.header.version)},
                      {"header_size", std::to_string(package.layout.header_length)},
                      {"marker", Quoted(MagicBytes(package.header.magic))},
                      {"marker_word", Quoted(Hex(package.header.magic))},
                      {"file_size", std::to_string(package.file_size)},
                      {"sha256", QuotedOrNull(found.sha256)},
                      {"regions", regions + "\n  ]"},
                      {"kernel", has_kernel ? KernelJson(found.kernel) : "null"}});
}

int Info(const Options &options)
{
    const Board board = options.GivenBoard();
    const InputFile file{options.operands[0]};
    Examination found = Examine(file, std::nullopt, board);
    Hash(file, found);
    if (options.Has('j')) {
        Print(PackageJson(found, board));
    } else {
        PrintText(found);
    }
    found.PrintWarnings(file.name());
    return kExitDone;
}

} // namespace

const Command kInfo{"info", kHelp, "", 1, Info};
