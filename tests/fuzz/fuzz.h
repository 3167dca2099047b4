// What every harness has: included once, by its only source.
//
// A harness makes of arbitrary bytes one use of the program, on the fake board where that touches
// the outside, and expects what must hold whatever the bytes are. The first expectation that fails
// ends the run.
#pragma once

#include <string>
#include <vector>

#include "tests/fake_board.h"

/// The harness: one execution.
void Fuzz(const std::string &input);

/// The first `count` fields of the input, which form feeds separate; the last takes all the rest,
/// and what is missing is empty.
inline std::vector<std::string> Fields(const std::string &input, size_t count)
{
    std::vector<std::string> fields(count);
    size_t begin = 0;
    for (size_t i = 0; i < count && begin <= input.size(); ++i) {
        const size_t end = i + 1 < count ? input.find('\f', begin) : std::string::npos;
        fields[i] = input.substr(begin, end - begin);
        begin = end == std::string::npos ? input.size() + 1 : end + 1;
    }
    return fields;
}

/// The character at `index` as a number, '0' being 0; also 0 where there is none.
inline int Digit(const std::string &text, size_t index)
{
    return index < text.size() ? static_cast<uint8_t>(text[index] - '0') : 0;
}

/// Memory that was freed is used again soon, which makes the runs four times as fast.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=1";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    GTEST_FLAG_SET(throw_on_failure, true); // nobody catches it
    setenv("TMPDIR", "/dev/shm", 0);        // where the board's files lie, in memory
    // No watch over the whole memory, since that is a thread of its own, whose sleeps the board
    // takes for the program's; each allocation is looked at instead.
    static char options[][32] = {"-rss_limit_mb=0", "-malloc_limit_mb=64"};
    static std::vector<char *> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.end(), {options[0], options[1]});
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz({reinterpret_cast<const char *>(data), size});
    return 0;
}
