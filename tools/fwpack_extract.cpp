#include <deque>

#include "tools/examine.h"
#include "tools/options.h"
#include "util/number.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack extract --output-dir DIR [OPTION...] PACKAGE\n"
    "       fwpack extract --region N --output FILE [OPTION...] PACKAGE\n\n"
    "Writes the regions of the PACKAGE ('-': standard input) to the files 'kernel', 'second'\n"
    "and 'etc': all of them or none.\n\n"
    "  -d, --output-dir DIR   the folder for the files; created if it does not exist\n"
    "  -r, --region N         only region 1, 2 or 3\n"
    "  -o, --output FILE      the file for one region; '-' is standard output\n"
    "  -f, --force            replace existing files\n";

int Extract(const Options &options)
{
    const int32_t only = options.Has('r') ? CUTIL_ParseDecimal(options.Value('r')) : 0;
    FailIf<kExitUsage>(options.Has('r') && (only < 1 || only > 3), options.Value('r'),
                       ": the region is 1, 2 or 3");
    FailIf<kExitUsage>(options.Has('d') == options.Has('o') || (options.Has('o') && only == 0),
                       "extract needs --output-dir, or --region and --output");
    const InputFile package{options.operands[0]};
    const Examination found = Locate(package, std::nullopt);
    std::deque<OutputFile> files;
    std::vector<OutputFile *> all;
    std::string report;
    for (int32_t i = 0; i < 3; ++i) {
        const Region &region = found.regions.at(i);
        if (only != 0 && only != i + 1) {
            continue;
        }
        FailIf(!region.is_whole, package.name(), ": region ", i + 1, ": ", region.reason);
        const std::string path =
            options.Has('o') ? options.Value('o') : Text(options.Value('d'), '/', kRegionNames[i]);
        if (path == "-") {
            package.ForEachPiece(region.start, region.size, [](auto piece) {
                std::fwrite(piece.data(), 1, piece.size(), stdout); // main checks its errors
            });
            return kExitDone;
        }
        all.push_back(
            &files.emplace_back(path, options.Has('f'), options.operands, options.Has('d')));
        all.back()->Copy(package, region.start, region.size);
        report += Text(path, ": ", region.size, " bytes\n");
    }
    OutputFile::Publish(all);
    std::fputs(report.c_str(), stdout);
    return kExitDone;
}

} // namespace

const Command kExtract{"extract", kHelp, "", 1, Extract};
