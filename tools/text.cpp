#include "tools/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "tools/progress.h"

namespace
{

std::string FormatList(const char *format, va_list arguments)
{
    va_list measured;
    va_copy(measured, arguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is in the callers
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

void PrintError(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Progress::EndLine();
    std::fflush(stdout); // main checks its errors
    std::fprintf(stderr, "fwpack: %s\n", FormatList(format, arguments).c_str());
    va_end(arguments);
}

bool Refuse(const char *path, const std::string &reason)
{
    PrintError("%s: %s", path, reason.c_str());
    return false;
}

std::string Format(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = FormatList(format, arguments);
    va_end(arguments);
    return text;
}

std::string Printable(std::string_view text)
{
    std::string printable{text.substr(0, text.find('\0'))};
    for (char &c : printable) {
        c = c >= ' ' && c <= '~' ? c : '.';
    }
    return printable;
}

std::string MagicBytes(uint32_t magic)
{
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>((magic >> shift) & 0xFF);
    }
    return bytes;
}

std::string MarkerText(uint32_t magic)
{
    return Format("\"%s\" (%08x)", Printable(MagicBytes(magic)).c_str(), magic);
}
