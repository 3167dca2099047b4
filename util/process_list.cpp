#include "util/process_list.h"

#include <fcntl.h>

#include <array>
#include <cstdio>

Fd ProcessList::OpenCommandLine(int id) const
{
    std::array<char, 24> path; // from the open directory, which saves a walk for every process
    std::snprintf(path.data(), path.size(), "%d/cmdline", id);
    // NOLINTNEXTLINE(clang-analyzer-unix.StdCLibraryFunctions): dirfd works for an open directory
    return Fd{openat(dirfd(directory_), path.data(), O_RDONLY)};
}
