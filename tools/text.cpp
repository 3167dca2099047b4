#include "tools/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "flash/package.h"

void PrintError(const std::string &message)
{
    std::fflush(stdout); // main checks its errors
    std::fprintf(stderr, "fwpack: %s\n", message.c_str());
}

void Fail(const std::string &name, const std::string &reason)
{
    throw Failure{name + ": " + reason};
}

void FailErrno(const std::string &name)
{
    Fail(name, std::strerror(errno));
}

void FailUsage(const std::string &message)
{
    throw Failure{message, kExitUsage};
}

std::string Format(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    std::string copy(length >= 0 ? text : "");
    std::free(length >= 0 ? text : nullptr);
    return copy;
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

std::string LayoutNames(const char *separator)
{
    std::string names;
    for (const PackageLayout &layout : kPackageLayouts) {
        names += (names.empty() ? "" : separator) + std::to_string(layout.version);
    }
    return names;
}
