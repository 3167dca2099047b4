// The commands of fwpack and their options.
#pragma once

#include <span>

#include "tools/partitions.h"
#include "tools/text.h"

/// The options and operands that were given to a command.
struct Options {
    std::array<const char *, 128> values{}; ///< by letter; empty if it takes none, null without it
    std::span<char *const> operands;

    const char *Value(char letter) const { return values.at(static_cast<size_t>(letter)); }
    bool Has(char letter) const { return Value(letter) != nullptr; }
    /// The value of -m as the word in a header.
    uint32_t Marker() const;
    /// From -p or -t.
    Board GivenBoard() const;
};

struct Command {
    const char *name;
    const char *help;     ///< each line '  -l, --layout N' in it makes an option; %s is the layouts
    const char *required; ///< letters of options
    size_t most_operands; ///< and at least one, unless it takes none
    int (*run)(const Options &options); ///< returns the exit status
};

extern const Command kCreate, kCheck, kInfo, kExtract, kFlashImage;
