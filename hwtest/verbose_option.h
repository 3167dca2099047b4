// The only option of the factory tests.
#pragma once

#include <string_view>

/// Tells whether the first argument is "-v".
inline bool HasVerboseOption(int argc, char **argv)
{
    return argc > 1 && std::string_view{argv[1]} == "-v";
}
