#include "util/process_list.h"

#include <cstdio>
#include <string_view>

const char *ProcessList::Next(void (*trace)(const char *name))
{
    while (const dirent *entry = readdir(directory_)) {
        if (trace != nullptr) {
            trace(entry->d_name);
        }
        const std::string_view name{entry->d_name};
        if (name != "." && name != "..") {
            return entry->d_name;
        }
    }
    return nullptr;
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
