#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/command_line.h"
#include "tools/output_file.h"
#include "tools/progress.h"
#include "tools/region.h"
#include "tools/text.h"
#include "tools/verdict.h"
#include "util/file.h"

namespace
{

/// A region and its output file.
struct Piece {
    size_t index;
    Region region;
    std::unique_ptr<OutputFile> file;
};

/// The requested regions. Prints the reason if the package does not hold one of them completely.
std::vector<Piece> FindPieces(const char *path, const Package &package, const Arguments &arguments)
{
    std::vector<Piece> pieces;
    for (size_t i = 0; i < kRegionNames.size(); ++i) {
        if (arguments.region.value_or(i) != i) {
            continue;
        }
        const Region region = RegionOf(package, i);
        const std::string fault = region.Fault();
        if (!fault.empty()) {
            Refuse(path, Format("region %zu: %s", i + 1, fault.c_str()));
            return {};
        }
        pieces.push_back({i, region, nullptr});
    }
    return pieces;
}

bool Copy(const char *path, std::FILE *package, const Piece &piece)
{
    std::array<char, 65536> bytes;
    if (fseeko(package, piece.region.start, SEEK_SET) != 0) {
        return Refuse(path, std::strerror(errno));
    }
    for (int64_t left = piece.region.size; left > 0;) {
        const size_t wanted = std::min(bytes.size(), static_cast<size_t>(left));
        if (std::fread(bytes.data(), 1, wanted, package) != wanted) {
            return Refuse(path, std::ferror(package) != 0 ? std::strerror(errno)
                                                          : "changed while it was read");
        }
        if (!piece.file->Write(std::span<const char>{bytes}.first(wanted))) {
            return false;
        }
        left -= static_cast<int64_t>(wanted);
    }
    return piece.file->Finish();
}

/// Writes all files, and only then moves them to their places.
bool WriteFiles(const char *path, std::vector<Piece> &pieces, const std::string &dir)
{
    const Progress progress{Format("extracting %s", path)};
    const File package{path, "r"};
    if (!package) {
        return Refuse(path, std::strerror(errno));
    }
    for (Piece &piece : pieces) {
        piece.file = std::make_unique<OutputFile>(dir + "/" + kRegionNames[piece.index]);
        if (!*piece.file || !Copy(path, package.get(), piece)) {
            return false;
        }
    }
    const HeldSignals held;
    return std::ranges::all_of(pieces,
                               [](const Piece &piece) { return piece.file->MoveToPlace(); });
}

bool Extract(const char *path, const Arguments &arguments)
{
    const std::string unreadable = WhyUnreadable(path);
    if (!unreadable.empty()) {
        return Refuse(path, unreadable);
    }
    const auto opened = OpenByItself(path);
    if (const auto *refusal = std::get_if<HeaderRefusal>(&opened)) {
        return SayNoPackage(path, *refusal);
    }
    std::vector<Piece> pieces = FindPieces(path, std::get<Package>(opened), arguments);
    if (pieces.empty()) {
        return false;
    }
    const bool made_dir = mkdir(arguments.output_dir, 0777) == 0;
    if (!made_dir && errno != EEXIST) {
        return Refuse(arguments.output_dir, std::strerror(errno));
    }
    if (!WriteFiles(path, pieces, arguments.output_dir)) {
        pieces.clear(); // removes unfinished files
        if (made_dir) {
            rmdir(arguments.output_dir); // fails if there are other files in it
        }
        return false;
    }
    for (const Piece &piece : pieces) {
        std::printf("%s: %" PRId64 " bytes\n", piece.file->path(), piece.region.size);
    }
    return true;
}

} // namespace

int RunExtract(const Arguments &arguments)
{
    return Extract(arguments.operands[0], arguments) ? kExitDone : kExitRefused;
}
