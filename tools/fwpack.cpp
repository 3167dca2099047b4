// fwpack: makes, checks, shows and extracts firmware packages.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/command_line.h"
#include "tools/text.h"

namespace
{

/// Opens closed standard streams, so that no file gets their numbers. The checks refuse a package
/// with descriptor 0, and messages would go into the output.
void OpenStandardStreams()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    close(fd);
}

} // namespace

int main(int argc, char **argv)
{
    OpenStandardStreams();
    const int status = RunCommandLine({argv, static_cast<size_t>(argc)});
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        PrintError("standard output: %s", std::strerror(errno));
        return kExitRefused;
    }
    return status;
}
