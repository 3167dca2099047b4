// xfactorydefault LIST: copies files over others. Each line of LIST has the operands of one cp.

#include <array>
#include <cstdio>
#include <cstring>

#include "util/file.h"
#include "util/shell.h"

namespace
{

constexpr size_t kLineSize = 256;
constexpr char kCopy[] = "cp -f ";

/// Runs the line as it stands, its line end included. The buffer takes every line that the reader
/// takes whole: a cut command could overwrite the wrong file.
void Copy(const char *operands)
{
    std::array<char, sizeof kCopy + kLineSize> command;
    std::snprintf(command.data(), command.size(), "%s%s", kCopy, operands);
    RunShell(command.data());
}

/// Whether the piece is the rest of its line, whose end is taken along. One that a damaged list
/// cuts short with a zero byte is not.
bool EndsLine(const char *piece, std::FILE *list)
{
    if (std::strchr(piece, '\n') != nullptr) {
        return true;
    }
    const int next = std::getc(list);
    if (next == EOF || (next == '\n' && std::strlen(piece) == kLineSize - 1)) {
        return true;
    }
    std::ungetc(next, list);
    return false;
}

void CopyListed(std::FILE *list)
{
    std::array<char, kLineSize> line{};
    bool begins = true;
    while (std::fgets(line.data(), static_cast<int>(line.size()), list) != nullptr) {
        // A line that is too long for the reader comes in pieces, none of which may run.
        const bool ends = EndsLine(line.data(), list);
        const bool is_copy = line[0] != '[' && line[0] != '#';
        if (begins && ends && is_copy) {
            Copy(line.data());
        }
        begins = ends;
    }
}

} // namespace

int xfactorydefault(int argc, char **argv)
{
    if (argc != 2) {
        std::printf("'%s' usage : \n", argv[0]);
        std::puts("        <replace filename> "); // the blank at the end is deliberate
        return 0;
    }
    const File list{argv[1], "r"};
    if (list) {
        CopyListed(list.get());
    }
    return 0;
}
