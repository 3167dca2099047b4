#include <algorithm>
#include <cstdio>

#include "tools/board_log.h"
#include "tools/command_line.h"
#include "tools/progress.h"
#include "tools/region.h"
#include "tools/text.h"
#include "tools/verdict.h"

namespace
{

/// Prints a verdict line for each region that is larger than its partition. Returns whether there
/// was none.
bool FitsPartitions(const char *path, const Package &package, const Arguments &arguments)
{
    bool fits = true;
    for (size_t i = 0; i < package.header.size.size(); ++i) {
        const std::string fault = WhyTooLarge(i, package.header.size[i], arguments.partitions);
        if (!fault.empty() && !arguments.quiet) {
            std::printf("%s: region %zu is %s\n", path, i + 1, fault.c_str());
        }
        fits = fits && fault.empty();
    }
    return fits;
}

Verdict JudgeSlowly(const char *path, const Arguments &arguments)
{
    const Progress progress{Format("checking %s", path)};
    return Judge(path,
                 {arguments.marker.has_value(), arguments.marker.value_or(0), arguments.layout});
}

int Check(const char *path, const Arguments &arguments)
{
    const std::string unreadable = WhyUnreadable(path);
    if (!unreadable.empty()) {
        Refuse(path, unreadable);
        return kExitUsage;
    }
    const Verdict verdict = JudgeSlowly(path, arguments);
    const auto *package = std::get_if<Package>(&verdict.opened);
    // The worse result first, because scripts read the first line.
    const bool fits = package == nullptr || FitsPartitions(path, *package, arguments);
    if (!arguments.quiet && verdict.reason.empty()) {
        std::printf("%s: a board would accept it%s\n", path,
                    fits ? "" : ": it does not compare sizes");
    } else if (!arguments.quiet) {
        std::printf("%s: a board would refuse it: %s\n", path, verdict.reason.c_str());
    }
    if (!arguments.quiet && package != nullptr) {
        WarnOfNegativeSizes(path, *package);
    }
    return verdict.reason.empty() && fits ? kExitDone : kExitRefused;
}

} // namespace

int RunCheck(const Arguments &arguments)
{
    if (arguments.verbose) {
        ShowBoardLog();
    }
    int status = kExitDone;
    bool judged = false;
    for (const char *path : arguments.operands) {
        const int its_status = Check(path, arguments);
        status = std::max(status, its_status);
        judged = judged || its_status != kExitUsage;
    }
    if (judged && !arguments.quiet) {
        SayWhetherCompared(arguments.partitions);
    }
    return status;
}
