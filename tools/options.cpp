#include "tools/options.h"

#include <getopt.h>

#include <cstring>
#include <deque>

#include "flash/package.h"

namespace
{

/// getopt's tables, made from the lines of a help text.
struct OptionTable {
    std::deque<std::string> names; ///< `options` has pointers to them
    std::vector<option> options;
    std::string letters;

    explicit OptionTable(const std::string &help)
    {
        for (size_t at = 0; (at = help.find("\n  -", at)) != std::string::npos; ++at) {
            const size_t name = at + std::strlen("\n  -l, --");
            const size_t end = help.find_first_of(" \n", name);
            const bool takes_value = help[end + 1] >= 'A' && help[end + 1] <= 'Z';
            names.push_back(help.substr(name, end - name));
            options.push_back({names.back().c_str(), takes_value ? 1 : 0, nullptr, help[at + 4]});
            letters += help[at + 4] + std::string{takes_value ? ":" : ""};
        }
        options.push_back({"help", no_argument, nullptr, 'h'});
        options.push_back({});
        letters += 'h';
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
    FailUsageIf(!missing.empty(), command.name, " needs ", missing);
    if (given.operands.size() > command.most_operands) {
        const char *word = given.operands[command.most_operands];
        throw Failure{Text(word, ": an argument too many"), kExitUsage};
    }
}

} // namespace

uint32_t Options::Marker() const
{
    const std::string_view text = Value('m');
    FailUsageIf(text.empty(), "the marker is empty");
    // A value in the board's files ends at these characters.
    FailUsageIf(text.find_first_of("=\r\n") != std::string_view::npos,
                "the marker has a '=' or a line end, which no board's configuration can hold");
    return MarkerWord(text);
}

Board Options::GivenBoard() const
{
    FailUsageIf(Has('p') && Has('t'), "--partitions and --mtd exclude each other");
    return Has('p')   ? ParseSizes(Value('p'))
           : Has('t') ? SizesOf(ReadPartitions(Value('t')))
                      : std::nullopt;
}

int RunCommand(const Command &command, std::span<char *> words)
{
    const OptionTable table{command.help};
    Options options;
    words[0] = const_cast<char *>("fwpack"); // getopt's messages begin with it
    for (int c; (c = getopt_long(static_cast<int>(words.size()), words.data(),
                                 table.letters.c_str(), table.options.data(), nullptr)) != -1;) {
        if (c == 'h') {
            return PrintHelp(command.help);
        }
        FailUsageIf(c == '?', "");
        options.values.at(static_cast<size_t>(c)) = optarg != nullptr ? optarg : "";
    }
    options.operands = words.subspan(static_cast<size_t>(optind));
    CheckComplete(command, table, options);
    return command.run(options);
}

int PrintHelp(const char *text)
{
    std::printf(text, LayoutNames(" or ").c_str());
    std::puts(
        "  -h, --help             show this help\n\n"
        "Exit status: 0 done or accepted; 1 refused or failed; 2 wrong usage or, with check,\n"
        "a package that cannot be read.");
    return kExitDone;
}
