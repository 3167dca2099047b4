// The running processes, as /proc lists them.
#pragma once

#include <dirent.h>

/// One pass over /proc.
class ProcessList
{
public:
    ProcessList() : directory_(opendir("/proc")) {}
    ~ProcessList() { Close(); }
    ProcessList(const ProcessList &) = delete;
    ProcessList &operator=(const ProcessList &) = delete;

    explicit operator bool() const { return directory_ != nullptr; }

    /// The name of the next entry, or null at the end and when it cannot be read. The processes
    /// have numbers for names.
    const char *Next();

    /// Returns false when closing failed.
    bool Close();

private:
    DIR *directory_;
};

/// Room for "/proc/%d/cmdline".
struct CommandLinePath {
    char text[32];
};

/// The path of the file that holds the command line of process `id`.
CommandLinePath CommandLinePathOf(int id);
