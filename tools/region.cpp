#include "tools/region.h"

#include <cinttypes>

#include "tools/text.h"

std::string Region::Fault() const
{
    if (size < 0) {
        return "negative size";
    }
    if (start < 0 || (start >= file_size && size > 0)) {
        return "outside the file";
    }
    if (start + size > file_size) {
        return Format("cut short, %" PRId64 " bytes are there", file_size - start);
    }
    return "";
}

Region RegionOf(const Package &package, size_t index)
{
    return {package.RegionStart(index), package.header.size[index], package.file_size};
}

void WarnOfNegativeSizes(const char *path, const Package &package)
{
    for (size_t i = 0; i < package.header.size.size(); ++i) {
        if (package.header.size[i] < 0) {
            PrintError("warning: %s: region %zu has the negative size %" PRId32
                       "; a board does not check that",
                       path, i + 1, package.header.size[i]);
        }
    }
}
