// xfactorydefault LIST: copies files over others. Each line of LIST has the operands of one cp.

#include <array>
#include <cstdio>

#include "bringup/applets.h"
#include "util/file.h"
#include "util/shell.h"

namespace
{

constexpr size_t kLineSize = 257; // 255 characters, the line end and the NUL byte
constexpr char kCopy[] = "cp -f ";

/// Runs cp with each line, including its line end. The command has room for every line that was
/// read: a cut one could overwrite the wrong file.
void CopyListed(File &list)
{
    std::array<char, kLineSize> line;
    std::array<char, sizeof kCopy + kLineSize> command;
    while (list.ReadWholeLine(line) > 0) {
        if (line[0] != '[' && line[0] != '#') {
            std::snprintf(command.data(), command.size(), "%s%s", kCopy, line.data());
            RunShell(command.data());
        }
    }
}

} // namespace

int xfactorydefault(int argc, char **argv)
{
    if (argc != 2) {
        std::printf("'%s' usage : \n", argv[0]);
        std::puts("        <replace filename> ");
        return 0;
    }
    File list{argv[1], "r"};
    if (list) {
        CopyListed(list);
    }
    return 0;
}
