// fwpack: makes, checks, shows and extracts firmware packages, and makes whole flashes of them.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/options.h"

namespace
{

constexpr const char *kHelp =
    "usage: fwpack COMMAND [OPTION...]\n\n"
    "  fwpack create          make a firmware package from its three regions\n"
    "  fwpack check           say whether a board would accept a package, and why not\n"
    "  fwpack info            show the contents of a package\n"
    "  fwpack extract         write the regions of a package to files\n"
    "  fwpack flash-image     make the whole flash of a new board\n"
    "  fwpack help [COMMAND]  show this help, or that of a command\n\n"
    "  -V, --version          show the version\n";

/// Keeps the name of the command in `command`, if there is one.
int Run(std::span<char *> words, std::string &command)
{
    const auto word = [&](size_t i) { return std::string{i < words.size() ? words[i] : ""}; };
    FailUsageIf(words.size() < 2, "a command is missing");
    if (word(1) == "-V" || word(1) == "--version") {
        std::puts("fwpack " FWPACK_VERSION);
        return kExitDone;
    }
    const bool asks = word(1) == "help" || word(1) == "-h" || word(1) == "--help";
    const std::string name = word(asks ? 2 : 1);
    if (asks && (name.empty() || name == "help")) {
        return PrintHelp(kHelp);
    }
    for (const Command *row : {&kCreate, &kCheck, &kInfo, &kExtract, &kFlashImage}) {
        if (name == row->name) {
            command = " " + name;
            return asks ? PrintHelp(row->help) : RunCommand(*row, words.subspan(1));
        }
    }
    throw Failure{"unknown command '" + name + "'", kExitUsage};
}

/// Opens closed standard streams, so that no file gets their numbers. The checks refuse a package
/// with descriptor 0, and messages would go into the output.
void OpenStandardStreams()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    close(fd);
}

} // namespace

int main(int argc, char **argv)
{
    OpenStandardStreams();
    // A message to a closed reader must not end the work. At the user's limit for the size of
    // files, a write fails with a message.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    int status = kExitDone;
    std::string command;
    try {
        status = Run({argv, static_cast<size_t>(argc)}, command);
    } catch (const Failure &failure) {
        status = failure.status;
        if (!failure.message.empty()) { // getopt prints its own
            PrintError(failure.message);
        }
        if (status == kExitUsage) {
            PrintError("try 'fwpack help" + command + "'");
        }
    }
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return status;
    }
    if (errno != EPIPE) { // that reader has read enough
        PrintError(Text("standard output: ", std::strerror(errno)));
    }
    return kExitRefused;
}
