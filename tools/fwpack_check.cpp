#include <getopt.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "flash/package.h"
#include "tools/board_log.h"
#include "tools/fwpack.h"

namespace
{

struct FaultText {
    PackageFault fault;
    const char *text;
};

// In the order of the board's checks.
constexpr std::array<FaultText, 7> kFaultTexts{{
    {PackageFault::kUnreadable, "it cannot be read, or ends within its header"},
    {PackageFault::kWrongMarker, "it is for boards with another marker"},
    {PackageFault::kWrongVersion, "the board expects another layout version"},
    {PackageFault::kUnknownLayout, "there is no such layout"},
    {PackageFault::kWrongFileSize, "its size is not what its header says"},
    {PackageFault::kBadKernelImage, "region 1 is not a sound kernel image for the board"},
    {PackageFault::kBadFileSystem,
     "region 3 is not a JFFS2 image: an erase block of 64 KiB begins with something else"},
}};

const char *TextOf(PackageFault fault)
{
    for (const FaultText &row : kFaultTexts) {
        if (row.fault == fault) {
            return row.text;
        }
    }
    return "";
}

/// What was found against what was expected, where that says more than the fault itself.
std::string Detail(PackageFault fault, const char *path, const PackageExpectation &expectation,
                   const Package &package)
{
    const PackageStart start = ReadPackageStart(path).value_or(PackageStart{});
    switch (fault) {
    case PackageFault::kWrongMarker:
        return MarkerText(start.magic) + ", not " + MarkerText(expectation.marker);
    case PackageFault::kWrongVersion:
        return std::to_string(expectation.version) + ", this is " + std::to_string(start.version);
    case PackageFault::kUnknownLayout:
        return std::to_string(start.version);
    case PackageFault::kWrongFileSize:
        return std::to_string(package.file_size) + " bytes, not " +
               std::to_string(package.ExpectedFileSize());
    case PackageFault::kBadKernelImage:
        return LastLogLine();
    default:
        return "";
    }
}

int Check(const char *path, const PackageExpectation &expectation)
{
    Package package{};
    PackageFault fault = ReadPackage(path, expectation, package);
    if (fault == PackageFault::kNone) {
        fault = CheckPackageContents(path, package);
    }
    if (fault == PackageFault::kNone) {
        std::printf("%s: a board would accept it\n", path);
        return kExitDone;
    }
    const std::string detail = Detail(fault, path, expectation, package);
    std::printf("%s: a board would refuse it: %s%s%s%s\n", path, TextOf(fault),
                detail.empty() ? "" : " (", detail.c_str(), detail.empty() ? "" : ")");
    return kExitRefused;
}

} // namespace

int RunCheck(int argc, char **argv)
{
    constexpr option kOptions[] = {{"marker", required_argument, nullptr, 'm'},
                                   {"version", required_argument, nullptr, 'V'},
                                   {}};
    PackageExpectation expectation{false, 0, 1};
    for (int c; (c = getopt_long(argc, argv, "m:V:", kOptions, nullptr)) != -1;) {
        if (c == 'm') {
            expectation.check_marker = true;
            expectation.marker = MarkerWord({optarg, std::strlen(optarg)});
        } else if (const auto version = c == 'V' ? ParseNumber(optarg) : std::nullopt) {
            expectation.version = *version;
        } else {
            return UsageError();
        }
    }
    if (optind + 1 != argc) {
        PrintError("check takes one package");
        return UsageError();
    }
    return Check(argv[optind], expectation);
}
