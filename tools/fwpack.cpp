// fwpack: makes, checks, shows and extracts firmware packages, and makes whole flashes of them.
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "flash/package.h"
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

/// The end of each help.
constexpr const char *kCommonHelp =
    "  -h, --help             show this help\n\n"
    "Exit status: 0 done or accepted; 1 refused or failed; 2 wrong usage or, with check,\n"
    "a package that cannot be read.\n";

int PrintHelp(const char *text)
{
    std::printf(text, LayoutNames(" or ").c_str());
    std::fputs(kCommonHelp, stdout);
    return kExitDone;
}

/// getopt's tables, made from the lines of a command's help.
struct OptionTable {
    std::deque<std::string> names; ///< `options` has pointers to them
    std::vector<option> options;
    std::string letters;

    explicit OptionTable(const Command &command)
    {
        const std::string help = Text(command.help, kCommonHelp);
        for (size_t at = 0; (at = help.find("\n  -", at)) != std::string::npos; ++at) {
            const size_t name = at + std::strlen("\n  -l, --");
            const size_t end = help.find_first_of(" \n", name);
            const bool takes_value = help[end + 1] >= 'A' && help[end + 1] <= 'Z';
            names.push_back(help.substr(name, end - name));
            options.push_back({names.back().c_str(), takes_value ? 1 : 0, nullptr, help[at + 4]});
            letters += help[at + 4] + std::string{takes_value ? ":" : ""};
        }
        options.push_back({});
    }
};

void CheckComplete(const Command &command, const OptionTable &table, const Options &given)
{
    std::string missing;
    for (const option &row : table.options) {
        if (row.val != 0 && std::strchr(command.required, row.val) != nullptr &&
            !given.Has(static_cast<char>(row.val))) {
            missing += Text(missing.empty() ? "--" : ", --", row.name);
        }
    }
    if (missing.empty() && command.most_operands > 0 && given.operands.empty()) {
        missing = command.most_operands > 1 ? "at least one package" : "a package";
    }
    FailIf<kExitUsage>(!missing.empty(), command.name, " needs ", missing);
    if (given.operands.size() > command.most_operands) {
        const char *word = given.operands[command.most_operands];
        throw Failure{Text(word, ": an argument too many"), kExitUsage};
    }
}

/// `words` begins with the command's name.
int RunCommand(const Command &command, std::span<char *> words)
{
    const OptionTable table{command};
    Options options;
    words[0] = const_cast<char *>("fwpack"); // getopt's messages begin with it
    for (int c; (c = getopt_long(static_cast<int>(words.size()), words.data(),
                                 table.letters.c_str(), table.options.data(), nullptr)) != -1;) {
        if (c == 'h') {
            return PrintHelp(command.help);
        }
        FailIf<kExitUsage>(c == '?', "");
        options.values.at(static_cast<size_t>(c)) = optarg != nullptr ? optarg : "";
    }
    options.operands = words.subspan(static_cast<size_t>(optind));
    CheckComplete(command, table, options);
    return command.run(options);
}

/// Keeps the name of the command in `command`, if there is one.
int Run(std::span<char *> words, std::string &command)
{
    const auto word = [&](size_t i) { return std::string{i < words.size() ? words[i] : ""}; };
    FailIf<kExitUsage>(words.size() < 2, "a command is missing");
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

uint32_t Options::Marker() const
{
    const std::string_view text = Value('m');
    FailIf<kExitUsage>(text.empty(), "the marker is empty");
    // A value in the board's files ends at these characters.
    FailIf<kExitUsage>(
        text.find_first_of("=\r\n") != std::string_view::npos,
        "the marker has a '=' or a line end, which no board's configuration can hold");
    return MarkerWord(text);
}

Board Options::GivenBoard() const
{
    FailIf<kExitUsage>(Has('p') && Has('t'), "--partitions and --mtd exclude each other");
    return Has('p') ? ParseSizes(Value('p')) : Has('t') ? ReadPartitions(Value('t')) : Board{};
}

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
