#include "util/conf_writer.h"

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

#include "util/file.h"
#include "util/text.h"

namespace
{

constexpr const char *kSharedScratch = "/etc/temp.conf";

using LineMatch = bool (*)(std::string_view line, std::string_view key);

/// The name ends before the first space or '='. If a '#' comes first, or the line has none of them,
/// the whole line with its newline is the name.
bool NameEquals(std::string_view line, std::string_view key)
{
    const size_t end = line.find_first_of(" =#");
    const bool ended = end != std::string_view::npos && line[end] != '#';
    return std::string_view{line.data(), ended ? end : line.size()} == key;
}

struct Job {
    const char *operation; ///< its name in the messages
    const char *path;
    const char *scratch_path;
    const char *key;
    const char *value;
    char separator;
    LineMatch matches;
};

/// As CUTIL_SetConfValue returns them.
enum Outcome {
    kDone = 0,
    kScratchInUse = -1,
    kTargetUnreadable = -1,
    kScratchUnwritable = -2,
    kRenameFailed = -3,
};

void WriteEntry(const Job &job, std::FILE *scratch)
{
    std::fprintf(scratch, "%s%c%s\n", job.key, job.separator, job.value);
}

/// Copies the target to the scratch file with the key's lines replaced, or the entry appended.
void CopyLines(const Job &job, File &target, std::FILE *scratch, std::span<char> buffer)
{
    bool replaced = false;
    while (const size_t length = target.ReadLine(buffer)) {
        const std::string_view line{buffer.data(), length};
        if (job.matches(line, job.key)) {
            WriteEntry(job, scratch);
            replaced = true;
        } else {
            std::fwrite(line.data(), 1, line.size(), scratch);
        }
    }
    if (!replaced) {
        WriteEntry(job, scratch);
    }
}

void PrintCannotOpen(const Job &job, const char *path)
{
    std::printf("[%s] we can't open the file : %s\n", job.operation, path);
}

Outcome Rewrite(const Job &job, std::span<char> line)
{
    File target{job.path, "r"};
    if (!target) {
        PrintCannotOpen(job, job.path);
        return kTargetUnreadable;
    }
    File scratch{job.scratch_path, "w"};
    if (!scratch) {
        PrintCannotOpen(job, job.scratch_path);
        return kScratchUnwritable;
    }
    CopyLines(job, target, scratch.get(), line);

    // The streams keep the errors of all reads and writes. A scratch file that is incomplete, or
    // made from an incomplete target, must never replace the settings.
    const bool whole_target = std::ferror(target.get()) == 0;
    target.Close();
    const bool written = std::ferror(scratch.get()) == 0;
    const bool closed = scratch.Close();
    if (!whole_target || !written || !closed) {
        std::remove(job.scratch_path);
        return whole_target ? kScratchUnwritable : kTargetUnreadable;
    }
    return std::rename(job.scratch_path, job.path) == 0 ? kDone : kRenameFailed;
}

bool ScratchInUse()
{
    const File scratch{kSharedScratch, "r"};
    return static_cast<bool>(scratch);
}

} // namespace

int CUTIL_SetConfValue(const char *path, const char *key, const char *value)
{
    // No lock: another writer may come between this test and the creation.
    if (ScratchInUse()) {
        std::puts("[CUTIL_SetConfValue] temp.conf is already used ...");
        return kScratchInUse;
    }
    std::array<char, 256> line{};
    const Job job{"CUTIL_SetConfValue", path, kSharedScratch, key, value, '=', NameEquals};
    return Rewrite(job, line);
}

int CUTIL_SetConfValueSep(char separator, const char *path, const char *key, const char *value)
{
    std::array<char, 256> line{};
    // The messages are those of CUTIL_SetConfValue.
    const Job job{"CUTIL_SetConfValue", path, kSharedScratch, key, value, separator, BeginsWith};
    return Rewrite(job, line) == kDone ? 0 : -1;
}

int CUTIL_SetFileValue(const char *path, const char *scratch_path, const char *key,
                       const char *value)
{
    std::array<char, 262'144> line; // too large to clear without need
    const Job job{"CUTIL_SetFileValue", path, scratch_path, key, value, '=', BeginsWith};
    return Rewrite(job, line) == kDone ? 0 : -1;
}
