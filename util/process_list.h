// The running processes, as /proc lists them.
#pragma once

#include <dirent.h>

#include <utility>

#include "util/fd.h"

/// One pass over /proc.
class ProcessList
{
public:
    ProcessList() : directory_(opendir("/proc")) {}
    ~ProcessList() { Close(); }
    ProcessList(const ProcessList &) = delete;
    ProcessList &operator=(const ProcessList &) = delete;

    explicit operator bool() const { return directory_ != nullptr; }

    /// The name of the next entry; null at the end and on an error. A process's name is its id.
    const char *Next()
    {
        const dirent *entry = readdir(directory_);
        return entry != nullptr ? entry->d_name : nullptr;
    }

    /// Opens the file with the command line of process `id`, /proc/%d/cmdline.
    [[nodiscard]] Fd OpenCommandLine(int id) const;

    /// Returns false when closing failed.
    bool Close()
    {
        DIR *directory = std::exchange(directory_, nullptr);
        return directory == nullptr || closedir(directory) == 0;
    }

private:
    DIR *directory_;
};
