// The command lines of fwpack.
#pragma once

#include <span>

#include "tools/partitions.h"
#include "tools/text.h"

/// The options and operands that were given to a command.
struct Options {
    std::array<const char *, 128> values{}; ///< by letter; empty if it takes none, null without it
    std::span<char *const> operands;

    [[nodiscard]] const char *Value(char letter) const
    {
        return values.at(static_cast<size_t>(letter));
    }
    [[nodiscard]] bool Has(char letter) const { return Value(letter) != nullptr; }
    /// A number, if the option was given. Fails with what is `expected` if the value is none.
    [[nodiscard]] std::optional<int32_t> Number(char letter, const std::string &expected) const;
    /// The value of -m as the word in a header.
    [[nodiscard]] uint32_t Marker() const;
};

struct Command {
    const char *name;
    const char *help;     ///< each line '  -l, --layout N' in it makes an option; %s is the layouts
    const char *required; ///< letters of options
    size_t least_operands;
    size_t most_operands;
    /// Returns the exit status. `board` is from the options -p and -t.
    int (*run)(const Options &options, const Board &board);
};

extern const Command kCreate;
extern const Command kCheck;
extern const Command kInfo;
extern const Command kExtract;
extern const Command kFlashImage;

/// Runs a command; `words` begins with its name. Returns the exit status.
int RunCommand(const Command &command, std::span<char *> words);

/// Prints the text, the option -h and the meaning of the exit statuses. Returns kExitDone.
int PrintHelp(const std::string &text);
