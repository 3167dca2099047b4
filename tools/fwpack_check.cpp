#include <syslog.h>

#include <algorithm>
#include <cstdarg>

#include "tools/examine.h"
#include "tools/options.h"
#include "util/number.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack check [OPTION...] PACKAGE...\n\n"
    "Says whether a board would accept each PACKAGE ('-': standard input). Makes the board's\n"
    "checks in the same order, and names the first that fails. With the sizes of the\n"
    "partitions, a region that does not fit gets its own line: a board would accept it.\n\n"
    "  -l, --layout N         the layout version that the board expects, by default 1\n"
    "  -m, --marker TEXT      the marker of the board; only four characters count. Without it,\n"
    "                         markers are not compared; only 'xupgrade -i' compares them\n"
    "  -p, --partitions SIZES the bytes of mtd1 to mtd3, such as 0x580000,8M,2048K\n"
    "  -t, --mtd FILE         the same, from a saved /proc/mtd or a table for flash-image\n"
    "  -q, --quiet            print no verdict; use the exit status\n"
    "  -v, --verbose          print the checks' lines of the board's log\n";

bool g_shows_log = false;

/// Prints a line of the board's log. Each ends with a line end.
void ShowLine(const char *format, va_list arguments)
{
    if (g_shows_log) {
        std::fputs("fwpack: log: ", stderr);
        std::vfprintf(stderr, format, arguments);
    }
}

/// Returns the exit status.
int CheckOne(const char *path, const PackageExpectation &expectation, const Board &board,
             bool quiet)
try {
    const InputFile file{path};
    const Examination found = Examine(file, expectation, board);
    if (!quiet) {
        // The worse result first, because scripts read the first line.
        for (const std::string &misfit : found.misfits) {
            Print(file.name(), ": ", misfit);
        }
        const char *verdict = !found.refusal.empty()  ? "refuse it: "
                              : found.misfits.empty() ? "accept it"
                                                      : "accept it: it does not compare sizes";
        Print(file.name(), ": a board would ", verdict, found.refusal);
        found.PrintWarnings(file.name());
    }
    return found.reason.empty() ? kExitDone : kExitRefused;
} catch (const Failure &failure) {
    PrintError(failure.message);
    return kExitUsage;
}

int Check(const Options &options)
{
    const bool has_marker = options.Has('m');
    const int32_t layout = options.Has('l') ? CUTIL_ParseDecimal(options.Value('l')) : 1;
    FailIf<kExitUsage>(layout < 0, "the layout version is a number");
    const PackageExpectation expectation{has_marker, has_marker ? options.Marker() : 0, layout};
    const Board board = options.GivenBoard();
    g_shows_log = options.Has('v');
    int status = kExitDone;
    bool accepted = false;
    for (const char *path : options.operands) {
        const int its_status = CheckOne(path, expectation, board, options.Has('q'));
        status = std::max(status, its_status);
        accepted = accepted || its_status == kExitDone;
    }
    if (accepted && !options.Has('q')) {
        SayWhetherCompared(board);
    }
    return status;
}

} // namespace

// These replace the C library's, so the checks' lines never reach this machine's log. With
// _FORTIFY_SOURCE the checks call the second one.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)
void syslog(int /*priority*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ShowLine(format, arguments);
    va_end(arguments);
}

void __syslog_chk(int /*priority*/, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ShowLine(format, arguments);
    va_end(arguments);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl51-cpp,readability-inconsistent-declaration-parameter-name)
}

const Command kCheck{"check", kHelp, "", SIZE_MAX, Check};
