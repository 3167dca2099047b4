#include "tools/command_line.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "flash/package.h"
#include "tools/text.h"

namespace
{

/// One option of one command.
struct Option {
    enum class Need { kOptional, kRequired };

    const char *name;
    const char *argument; ///< null if it takes none
    const char *help;     ///< lines
    /// Stores the value. Returns false, after a message, if it is invalid.
    bool (*take)(Arguments &arguments, const char *value);
    char letter;
    Need need = Need::kOptional;
};

struct Command {
    const char *name;
    const char *operand; ///< null if it takes none; with dots if it takes several
    const char *summary;
    const char *text;
    std::span<const Option> options;
    int (*run)(const Arguments &arguments);
};

constexpr auto kRequired = Option::Need::kRequired;

// ---- Values of the options ----------------------------------------------------------------------

/// The number in `text`, if `text` has nothing else.
std::optional<int32_t> ParseNumber(std::string_view text)
{
    int32_t value{};
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stopped != end) {
        return std::nullopt;
    }
    return value;
}

bool TakeExpectedLayout(Arguments &arguments, const char *value)
{
    const auto layout = ParseNumber(value);
    arguments.layout = layout.value_or(0);
    return layout || Refuse(value, "the layout version is a number");
}

bool TakeLayout(Arguments &arguments, const char *value)
{
    const auto layout = ParseNumber(value);
    if (!layout || FindPackageLayout(*layout) == nullptr) {
        return Refuse(value, "the layout is 1 or 3");
    }
    arguments.layout = *layout;
    return true;
}

bool TakeBoardMarker(Arguments &arguments, const char *value)
{
    const std::string_view text = value;
    if (text.empty()) {
        PrintError("the marker is empty");
        return false;
    }
    // A value in the board's files ends at these characters.
    if (text.find_first_of("=\r\n") != std::string_view::npos) {
        PrintError("the marker has a '=' or a line end, which no board's configuration can hold");
        return false;
    }
    arguments.marker = MarkerWord(text);
    return true;
}

bool TakeMarker(Arguments &arguments, const char *value)
{
    return std::strlen(value) > sizeof(uint32_t)
               ? Refuse(value, "a marker has at most four characters")
               : TakeBoardMarker(arguments, value);
}

template<size_t Index>
bool TakeRegionFile(Arguments &arguments, const char *value)
{
    arguments.regions[Index] = value;
    return true;
}

template<const char *Arguments::*Field>
bool TakeText(Arguments &arguments, const char *value)
{
    arguments.*Field = value;
    return true;
}

template<bool Arguments::*Field>
bool TakeFlag(Arguments &arguments, const char * /*value*/)
{
    arguments.*Field = true;
    return true;
}

bool TakeRegionNumber(Arguments &arguments, const char *value)
{
    const auto number = ParseNumber(value);
    if (!number || *number < 1 || *number > 3) {
        return Refuse(value, "the region is 1, 2 or 3");
    }
    arguments.region = static_cast<size_t>(*number) - 1;
    return true;
}

bool TakePartitions(Arguments &arguments, const char *value)
{
    arguments.partitions = ParsePartitions(value);
    return arguments.partitions ||
           Refuse(value, "the partitions are three sizes, as in 0x580000,8M,2048K");
}

bool TakeMtdTable(Arguments &arguments, const char *value)
{
    arguments.partitions = ReadMtdTable(value);
    return arguments.partitions.has_value();
}

// ---- The options of each command ----------------------------------------------------------------

constexpr Option kPartitions{"partitions", "SIZE1,SIZE2,SIZE3",
                             "the sizes of the partitions mtd1 to mtd3 in bytes, also with 0x,\n"
                             "K or M: a board does not compare them with the regions",
                             TakePartitions, 'p'};
constexpr Option kMtd{"mtd", "FILE", "the same, from a /proc/mtd saved on the board", TakeMtdTable,
                      't'};

constexpr Option kCreateOptions[] = {
    {"layout", "1|3", "1: the board checks the /etc image too; 3: it does not", TakeLayout, 'l',
     kRequired},
    {"marker", "TEXT", "up to four characters: the OEM marker of the target boards", TakeMarker,
     'm', kRequired},
    {"kernel", "FILE", "region 1, for /dev/mtd/1: a kernel image made by mkimage",
     TakeRegionFile<0>, 'k', kRequired},
    {"second", "FILE", "region 2, for /dev/mtd/2: anything", TakeRegionFile<1>, 's', kRequired},
    {"etc", "FILE", "region 3, for /dev/mtd/3: a JFFS2 image with erase blocks of 64 KiB",
     TakeRegionFile<2>, 'e', kRequired},
    {"output", "FILE", "the package", TakeText<&Arguments::output>, 'o', kRequired},
    kPartitions,
    kMtd,
};

constexpr Option kCheckOptions[] = {
    {"layout", "N", "the layout version that the board expects, by default 1", TakeExpectedLayout,
     'l'},
    {"version", "N", "another name for --layout", TakeExpectedLayout, 'V'},
    {"marker", "TEXT",
     "the marker of the board; only its first four characters count. Without\n"
     "it, markers are not compared: 'upgrade' does not compare them either,\n"
     "'xupgrade -i' does",
     TakeBoardMarker, 'm'},
    kPartitions,
    kMtd,
    {"quiet", nullptr, "print no verdict; use the exit status", TakeFlag<&Arguments::quiet>, 'q'},
    {"verbose", nullptr, "print the checks' lines of the board's log",
     TakeFlag<&Arguments::verbose>, 'v'},
};

constexpr Option kInfoOptions[] = {
    {"json", nullptr, "print one JSON object, for scripts", TakeFlag<&Arguments::json>, 'j'},
    kPartitions,
    kMtd,
};

constexpr Option kExtractOptions[] = {
    {"output-dir", "DIR", "the folder for the files; created if it does not exist",
     TakeText<&Arguments::output_dir>, 'd', kRequired},
    {"region", "N", "only region 1, 2 or 3", TakeRegionNumber, 'r'},
};

constexpr Command kCommands[] = {
    {"create", nullptr, "make a firmware package from its three regions",
     "Makes a firmware package. Fails if a board would refuse it or if it does not fit the\n"
     "partitions. The output is complete or does not appear at all.",
     kCreateOptions, RunCreate},
    {"check", "PACKAGE...", "say whether a board would accept a package, and why not",
     "Says whether a board would accept each package. Makes the board's checks in the same\n"
     "order, and names the first that fails. A region that is larger than its partition\n"
     "gets its own line: a board would accept it and fail to write it.",
     kCheckOptions, RunCheck},
    {"info", "PACKAGE", "show the contents of a package",
     "Shows the contents of a package, even a damaged one, and whether a board accepts it.",
     kInfoOptions, RunInfo},
    {"extract", "PACKAGE", "write the regions of a package to files",
     "Writes the regions to the files 'kernel', 'second' and 'etc': all of them or none.",
     kExtractOptions, RunExtract},
};

constexpr const char *kExitStatus =
    "\nExit status: 0 done or accepted; 1 refused or failed; 2 wrong usage or, with check,\n"
    "a file that cannot be read.\n";

// ---- Usage and help -----------------------------------------------------------------------------

std::string WithArgument(const Option &option)
{
    return Format("--%s%s%s", option.name, option.argument != nullptr ? " " : "",
                  option.argument != nullptr ? option.argument : "");
}

void PrintUsage(const Command &command)
{
    constexpr size_t kWidth = 80;
    std::string line = Format("usage: fwpack %s", command.name);
    const std::string indent(line.size(), ' ');
    const auto add = [&](const std::string &word) {
        if (line.size() + 1 + word.size() > kWidth) {
            std::puts(line.c_str());
            line = indent;
        }
        line += " " + word;
    };
    for (const Option &option : command.options) {
        const std::string word = WithArgument(option);
        add(option.need == kRequired ? word : "[" + word + "]");
    }
    if (command.operand != nullptr) {
        add(command.operand);
    }
    std::puts(line.c_str());
}

void PrintOption(char letter, const std::string &name, std::string_view help)
{
    std::printf("  -%c, %s\n", letter, name.c_str());
    while (!help.empty()) {
        const size_t length = std::min(help.find('\n'), help.size());
        std::printf("          %.*s\n", static_cast<int>(length), help.data());
        help.remove_prefix(std::min(length + 1, help.size()));
    }
}

int PrintHelp(const Command &command)
{
    PrintUsage(command);
    std::printf("\n%s\n\n", command.text);
    for (const Option &option : command.options) {
        PrintOption(option.letter, WithArgument(option), option.help);
    }
    PrintOption('h', "--help", "this help");
    std::fputs(kExitStatus, stdout);
    return kExitDone;
}

int PrintGeneralHelp()
{
    std::puts("usage: fwpack COMMAND [OPTION...]\n");
    for (const Command &command : kCommands) {
        std::printf("  fwpack %-8s %s\n", command.name, command.summary);
    }
    std::puts("  fwpack help     show this help, or that of a command\n");
    PrintOption('h', "--help", "this help; 'fwpack COMMAND --help' is that of a command");
    PrintOption('V', "--version", "the version");
    std::fputs(kExitStatus, stdout);
    return kExitDone;
}

/// Says where to find help; `name` is a command's name or empty.
int UsageError(std::string_view name)
{
    PrintError("try 'fwpack help%s%.*s'", name.empty() ? "" : " ", static_cast<int>(name.size()),
               name.data());
    return kExitUsage;
}

// ---- Parsing ------------------------------------------------------------------------------------

/// getopt's tables: the long options, and the letters, with a colon after each that takes a value.
struct GetoptTable {
    std::vector<option> options;
    std::string letters;

    void Add(const char *name, char letter, bool takes_value)
    {
        options.push_back({name, takes_value ? required_argument : no_argument, nullptr, letter});
        letters += letter;
        letters += takes_value ? ":" : "";
    }
};

GetoptTable TableOf(const Command &command)
{
    GetoptTable table;
    for (const Option &option : command.options) {
        table.Add(option.name, option.letter, option.argument != nullptr);
    }
    table.Add("help", 'h', false);
    table.options.push_back({});
    return table;
}

const Option *FindOption(const Command &command, int letter)
{
    for (const Option &option : command.options) {
        if (option.letter == letter) {
            return &option;
        }
    }
    return nullptr;
}

/// Prints the missing required options. Returns whether there are none.
bool IsComplete(const Command &command, std::string_view given)
{
    std::string missing;
    for (const Option &option : command.options) {
        if (option.need == kRequired && given.find(option.letter) == std::string_view::npos) {
            missing += Format("%s--%s", missing.empty() ? "" : ", ", option.name);
        }
    }
    if (!missing.empty()) {
        PrintError("%s needs %s", command.name, missing.c_str());
    }
    return missing.empty();
}

bool HasItsOperands(const Command &command, std::span<const char *const> operands)
{
    if (command.operand == nullptr) {
        return operands.empty() || Refuse(operands[0], "an argument too many");
    }
    const bool takes_several = std::string_view{command.operand}.ends_with("...");
    if (operands.empty() || (operands.size() > 1 && !takes_several)) {
        PrintError("%s takes %s", command.name, takes_several ? "packages" : "one package");
        return false;
    }
    return true;
}

int RunCommand(const Command &command, std::span<char *> words)
{
    words[0] = const_cast<char *>("fwpack"); // getopt's messages begin with it
    const GetoptTable table = TableOf(command);
    Arguments arguments;
    std::string given;
    optind = 0; // restarts getopt
    for (int c; (c = getopt_long(static_cast<int>(words.size()), words.data(),
                                 table.letters.c_str(), table.options.data(), nullptr)) != -1;) {
        if (c == 'h') {
            return PrintHelp(command);
        }
        const Option *option = FindOption(command, c);
        if (option == nullptr || !option->take(arguments, optarg)) {
            return UsageError(command.name);
        }
        given += option->letter;
    }
    const auto operands = words.subspan(static_cast<size_t>(optind));
    arguments.operands.assign(operands.begin(), operands.end());
    if (!IsComplete(command, given) || !HasItsOperands(command, arguments.operands)) {
        return UsageError(command.name);
    }
    return command.run(arguments);
}

const Command *FindCommand(std::string_view name)
{
    for (const Command &command : kCommands) {
        if (name == command.name) {
            return &command;
        }
    }
    PrintError("'%.*s' is no command", static_cast<int>(name.size()), name.data());
    return nullptr;
}

int RunHelp(std::span<char *> words)
{
    if (words.size() == 1) {
        return PrintGeneralHelp();
    }
    const Command *command = FindCommand(words[1]);
    return command != nullptr ? PrintHelp(*command) : UsageError("");
}

} // namespace

int RunCommandLine(std::span<char *> arguments)
{
    constexpr option kOptions[] = {
        {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {}};
    // With the plus, getopt stops at the command.
    switch (getopt_long(static_cast<int>(arguments.size()), arguments.data(), "+hV", kOptions,
                        nullptr)) {
    case 'h':
        return PrintGeneralHelp();
    case 'V':
        std::printf("fwpack %s\n", FWPACK_VERSION);
        return kExitDone;
    case -1:
        break;
    default:
        return UsageError("");
    }
    const auto words = arguments.subspan(static_cast<size_t>(optind));
    if (words.empty()) {
        PrintError("a command is missing");
        return UsageError("");
    }
    if (words[0] == std::string_view{"help"}) {
        return RunHelp(words);
    }
    const Command *command = FindCommand(words[0]);
    return command != nullptr ? RunCommand(*command, words) : UsageError("");
}
