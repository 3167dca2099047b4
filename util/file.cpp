#include "util/file.h"

#include <string_view>

size_t File::ReadLine(std::span<char> line)
{
    size_t length = 0;
    int c = 0;
    while (length + 1 < line.size() && c != '\n' && (c = std::getc(stream_)) != EOF) {
        line[length++] = static_cast<char>(c);
    }
    line[length] = '\0';
    return std::ferror(stream_) == 0 ? length : 0;
}

size_t File::ReadWholeLine(std::span<char> line)
{
    bool begins = true;
    while (const size_t length = ReadLine(line)) {
        const std::string_view piece{line.data(), length};
        const bool ends = piece.ends_with('\n') || std::feof(stream_) != 0;
        if (begins && ends && piece.find('\0') == std::string_view::npos) {
            return length;
        }
        begins = ends;
    }
    return 0;
}
