#include "util/process_list.h"

#include <cstdio>

const char *ProcessList::Next()
{
    const dirent *entry = readdir(directory_);
    return entry != nullptr ? entry->d_name : nullptr;
}

bool ProcessList::Close()
{
    DIR *directory = directory_;
    directory_ = nullptr;
    return directory == nullptr || closedir(directory) == 0;
}

CommandLinePath CommandLinePathOf(int id)
{
    CommandLinePath path;
    std::snprintf(path.text, sizeof path.text, "/proc/%d/cmdline", id);
    return path;
}
