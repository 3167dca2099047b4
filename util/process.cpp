#include "util/process.h"

#include <signal.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "util/file.h"
#include "util/number.h"
#include "util/process_list.h"
#include "util/text.h"

namespace
{

/// The ids below belong to the early system processes, which are never signalled.
constexpr int kFirstSignalledId = 20;
/// One more than the above: id 20 can be signalled but is never found.
constexpr int kFirstFoundId = 21;

/// Reads a command line, cut to the buffer, until its first word is complete. Nobody looks further,
/// and this saves the read that finds the end. Returns the number of bytes.
size_t ReadCommandLine(const Fd &file, std::span<char> buffer)
{
    // cppcheck-suppress uninitvar ; only the size is read
    const std::span<char> room = buffer.first(buffer.size() - 1);
    size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t count = read(file.get(), &room[filled], room.size() - filled);
        if (count <= 0) {
            break;
        }
        filled += static_cast<size_t>(count);
        if (room[filled - 1] == '\0') {
            break;
        }
    }
    buffer[filled] = '\0';
    return filled;
}

/// Calls `visit` with the id and command line of every process that may be signalled.
template<typename Visit>
void ForEachSignalled(ProcessList &processes, Visit visit)
{
    while (const char *entry = processes.Next()) {
        const int id = CUTIL_ParseDecimal(entry);
        if (id < kFirstSignalledId) {
            continue;
        }
        const Fd file = processes.OpenCommandLine(id);
        std::array<char, 256> command_line;
        if (file && ReadCommandLine(file, command_line) > 0) {
            // The log shows only the first line, with its end.
            if (char *end = std::strchr(command_line.data(), '\n'); end != nullptr) {
                end[1] = '\0';
            }
            visit(id, command_line.data());
        }
    }
}

constexpr size_t kNameSize = 32; ///< with the NUL byte at its end
constexpr size_t kMostNames = 16;

/// The names of a list file.
struct NameList {
    std::array<std::array<char, kNameSize>, kMostNames> names;
    size_t count = 0;

    void Read(File &file)
    {
        std::array<char, 256> line;
        while (const size_t length = count < names.size() ? file.ReadWholeLine(line) : 0) {
            if (length < kNameSize) {
                line[std::strcspn(line.data(), "\r\n")] = '\0';
                std::copy_n(line.begin(), length + 1, names[count++].begin());
            }
        }
    }
};

void SignalListed(const NameList &list, int id, const char *command_line, int signal_number)
{
    // Each name that matches sends the signal. If kill fails, the process has ended meanwhile.
    for (size_t i = 0; i < list.count; ++i) {
        if (BeginsWith(command_line, list.names[i].data())) {
            syslog(LOG_INFO, "[CUTIL_KillProcAll] - kill[%s], %d\n", command_line, id);
            kill(id, signal_number);
        }
    }
}

void TraceComparison(const char *name, const char *command_line)
{
    std::printf("_name         : [%s]\n"
                "buf           : [%s]\n"
                "strlen(_name) : %d\n"
                "strlen(buf)   : %d\n\n",
                name, command_line, static_cast<int>(std::strlen(name)),
                static_cast<int>(std::strlen(command_line)));
}

/// Tells whether the command line of process `id` begins with `name`.
bool RunsAs(const ProcessList &processes, int id, const char *name, bool debug)
{
    if (debug) {
        std::printf("CUTIL_IsProc 4 : %d : /proc/%d/cmdline\n", id, id);
    }
    const Fd file = processes.OpenCommandLine(id);
    if (!file) {
        std::printf("CUTIL_IsProc error while open /proc/%d/cmdline\n", id);
        return false;
    }
    std::array<char, 256> command_line;
    if (ReadCommandLine(file, command_line) == 0) {
        return false;
    }
    if (debug) {
        TraceComparison(name, command_line.data());
    }
    return BeginsWith(command_line.data(), name);
}

} // namespace

int CUTIL_KillProc(const char *name, int signal_number)
{
    ProcessList processes;
    if (!processes) {
        return 0;
    }
    ForEachSignalled(processes, [&](int id, const char *command_line) {
        if (BeginsWith(command_line, name)) {
            kill(id, signal_number); // fails when the process ended meanwhile
        }
    });
    return 0;
}

int CUTIL_KillProcAll(const char *list_path, int signal_number)
{
    syslog(LOG_INFO, "[CUTIL_KillProcAll]\n");

    NameList list;
    {
        File file{list_path, "r"};
        if (!file) {
            syslog(LOG_INFO, "[CUTIL_KillProcAll] - list open err[%s]\n", list_path);
            return -1;
        }
        list.Read(file);
    }
    ProcessList processes;
    if (!processes) {
        syslog(LOG_INFO, "[CUTIL_KillProcAll] - opendir err[%s]\n", "/proc");
        return 0;
    }
    ForEachSignalled(processes, [&](int id, const char *command_line) {
        SignalListed(list, id, command_line, signal_number);
    });
    return 0;
}

int CUTIL_IsProc(const char *name, int debug)
{
    ProcessList processes;
    if (!processes) {
        if (debug != 0) {
            std::puts("CUTIL_IsProc error while open /proc");
        }
        return -1;
    }
    while (const char *entry = processes.Next()) {
        if (debug != 0) {
            std::printf("CUTIL_IsProc dirp->d_name : %s\n", entry);
        }
        const int id = CUTIL_ParseDecimal(entry);
        if (id >= kFirstFoundId && RunsAs(processes, id, name, debug != 0)) {
            return 1;
        }
    }
    return processes.Close() ? 0 : -1;
}
