#include "tools/text.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iomanip>

#include "flash/package.h"
#include "util/byte_order.h"

void FailErrnoIf(bool is_wrong, const std::string &name)
{
    FailIf(is_wrong, name, ": ", std::strerror(errno));
}

void PrintError(const std::string &message)
{
    std::fflush(stdout); // main checks its errors
    std::fprintf(stderr, "fwpack: %s\n", message.c_str());
}

std::string Hex(uint32_t number, int digits)
{
    return Text(std::hex, std::setfill('0'), std::setw(digits), number);
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
    std::array<uint8_t, 4> bytes;
    StoreLe32(bytes.data(), magic);
    return {bytes.begin(), bytes.end()};
}

std::string MarkerText(uint32_t magic)
{
    return Text('"', Printable(MagicBytes(magic)), "\" (", Hex(magic), ")");
}

std::string LayoutNames(const char *separator)
{
    std::string names;
    for (const PackageLayout &layout : kPackageLayouts) {
        names += (names.empty() ? "" : separator) + std::to_string(layout.version);
    }
    return names;
}
