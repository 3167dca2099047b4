#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "tools/board_log.h"
#include "tools/fwpack.h"
#include "tools/verdict.h"

namespace
{

constexpr const char *kHelp = R"(usage: fwpack check [--marker TEXT] [--version N] [--verbose] FILE

Tells whether a board would accept the package, by the board's own checks in their order, and names
the first that fails.

  -m, --marker TEXT   the marker of the board; of a longer one the first four characters count.
                      Without it markers are not compared: 'upgrade' does not compare them either,
                      'xupgrade -i' does
  -V, --version N     the layout version that the board expects, 1 where it is not told otherwise
  -v, --verbose       shows what the checks write to the board's log, on standard error
  -h, --help          this help

Exit status: 0 accepted, 1 refused, 2 wrong usage.
)";

/// The number that is the whole of `text`.
std::optional<int32_t> ParseNumber(const char *text)
{
    int32_t value{};
    const char *end = text + std::strlen(text);
    const auto [stopped, error] = std::from_chars(text, end, value);
    if (error != std::errc{} || stopped != end) {
        return std::nullopt;
    }
    return value;
}

int Check(const char *path, const PackageExpectation &expectation)
{
    const std::string reason = WhyRefused(path, expectation);
    if (reason.empty()) {
        std::printf("%s: a board would accept it\n", path);
        return kExitDone;
    }
    std::printf("%s: a board would refuse it: %s\n", path, reason.c_str());
    return kExitRefused;
}

} // namespace

int RunCheck(int argc, char **argv)
{
    constexpr option kOptions[] = {{"marker", required_argument, nullptr, 'm'},
                                   {"version", required_argument, nullptr, 'V'},
                                   {"verbose", no_argument, nullptr, 'v'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {}};
    PackageExpectation expectation{false, 0, 1};
    for (int c; (c = getopt_long(argc, argv, "m:V:vh", kOptions, nullptr)) != -1;) {
        switch (c) {
        case 'm':
            expectation.check_marker = true;
            expectation.marker = MarkerWord({optarg, std::strlen(optarg)});
            break;
        case 'V': {
            const auto version = ParseNumber(optarg);
            if (!version) {
                PrintError("the version is a number, not '%s'", optarg);
                return UsageError(argv[0]);
            }
            expectation.version = *version;
            break;
        }
        case 'v':
            ShowBoardLog();
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            return kExitDone;
        default:
            return UsageError(argv[0]);
        }
    }
    if (optind + 1 != argc) {
        PrintError("check takes one package");
        return UsageError(argv[0]);
    }
    return Check(argv[optind], expectation);
}
