// fwpack: makes, shows and checks firmware packages.
#include "tools/fwpack.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{

constexpr const char *kHelp = R"(usage: fwpack COMMAND [OPTION...]

  fwpack create   makes a firmware package out of its three regions
  fwpack info     shows what is inside a package, also a damaged one
  fwpack check    tells whether a board would accept a package, and why not

  -h, --help      this help; 'fwpack COMMAND --help' has the options of a command
  -V, --version   the version

Exit status: 0 done or accepted, 1 refused or failed, 2 wrong usage.
)";

struct Subcommand {
    std::string_view name;
    int (*run)(int argc, char **argv);
};

constexpr std::array<Subcommand, 3> kSubcommands{{
    {"create", RunCreate},
    {"info", RunInfo},
    {"check", RunCheck},
}};

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

/// A file must not get the number of a closed standard stream: the checks refuse a package that is
/// descriptor 0, and messages would end up in the output.
void OpenStandardStreams()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    close(fd);
}

int RunSubcommand(int argc, char **argv)
{
    for (const Subcommand &subcommand : kSubcommands) {
        if (argv[0] == subcommand.name) {
            std::string title = Format("fwpack %s", argv[0]); // the name in getopt's messages
            argv[0] = title.data();
            optind = 0; // makes it begin anew
            return subcommand.run(argc, argv);
        }
    }
    PrintError("'%s' is no command", argv[0]);
    return UsageError("fwpack");
}

int Run(int argc, char **argv)
{
    constexpr option kOptions[] = {
        {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {}};
    // The plus ends the options at the command.
    switch (getopt_long(argc, argv, "+hV", kOptions, nullptr)) {
    case 'h':
        std::fputs(kHelp, stdout);
        return kExitDone;
    case 'V':
        std::printf("fwpack %s\n", FWPACK_VERSION);
        return kExitDone;
    case -1:
        break;
    default:
        return UsageError("fwpack");
    }
    if (optind == argc) {
        PrintError("a command is missing");
        return UsageError("fwpack");
    }
    return RunSubcommand(argc - optind, argv + optind);
}

} // namespace

void PrintError(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "fwpack: %s\n", FormatList(format, arguments).c_str());
    va_end(arguments);
}

int UsageError(const char *command)
{
    std::fprintf(stderr, "Try '%s --help'.\n", command);
    return kExitUsage;
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

std::string MarkerText(uint32_t magic)
{
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>((magic >> shift) & 0xFF);
    }
    return Format("\"%s\" (%08x)", Printable(text).c_str(), magic);
}

int main(int argc, char **argv)
{
    OpenStandardStreams();
    const int status = Run(argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        PrintError("standard output: %s", std::strerror(errno));
        return kExitRefused;
    }
    return status;
}
