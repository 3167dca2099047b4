// Finding and signalling processes by their command lines, against a model.
//
// Input: a name; a list file; then the processes, each an entry of /proc, a blank, a command line.
#include "util/process.h"

#include <algorithm>
#include <map>

#include "tests/fuzz/fuzz.h"

namespace
{

/// The value of a text of digits, -1 for any other.
int64_t Number(const std::string &text)
{
    const bool is_number = text.size() < 12 && text.find_first_not_of("0123456789") == text.npos;
    const int64_t value = is_number ? std::stoll(text) : -1;
    return value <= INT32_MAX ? value : -1;
}

/// The first `size` characters of the first line, to a NUL, the line end included.
std::string FirstLine(const std::string &text, size_t size)
{
    const size_t end = text.find('\n');
    return text.substr(0, std::min(size, end == text.npos ? end : end + 1)).c_str();
}

std::vector<std::string> NamesIn(const std::string &list)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < list.size() && names.size() < 16;) {
        const std::string line = list.substr(at, list.find('\n', at) - at);
        at += line.size() + 1;
        const bool ended = at <= list.size();
        if (line.size() + (ended ? 1 : 0) < 32 && line.find('\0') == line.npos) {
            names.push_back(line.substr(0, line.find('\r')));
        }
    }
    return names;
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 12);
    const std::string name = fields[0].c_str();
    const std::string &list = fields[1];
    std::map<std::string, std::string> processes;
    for (size_t i = 2; i < fields.size(); ++i) {
        const size_t blank = fields[i].find(' ');
        std::string entry = fields[i].substr(0, std::min(blank, size_t{64}));
        std::ranges::replace_if(
            entry, [](char c) { return c == '/' || c == '\0'; }, '_');
        if (!entry.empty() && entry[0] != '.' && entry[0] != '0') {
            processes[entry] = blank == std::string::npos ? "" : fields[i].substr(blank + 1);
        }
    }

    FakeBoard board;
    board.processes_obey = false;
    board.Write("/etc/list", list);
    for (const auto &[entry, command_line] : processes) {
        board.Write("/proc/" + entry + "/cmdline", command_line);
    }
    std::string signals;
    std::string list_signals;
    bool found = false;
    const std::vector<std::string> names = NamesIn(list);
    for (const auto &[entry, command_line] : processes) {
        const int64_t id = Number(entry);
        if (id < 20 || command_line.empty()) {
            continue;
        }
        const std::string line = FirstLine(command_line, 255);
        const std::string words = "kill " + std::to_string(id);
        signals += line.starts_with(name) ? words + " 9\n" : "";
        for (const std::string &listed : names) {
            list_signals += line.starts_with(listed.c_str()) ? words + " 15\n" : "";
        }
        const std::string all = command_line.substr(0, 255).c_str();
        found = found || (id > 20 && all.starts_with(name));
    }
    EXPECT_EQ(board.Run(CUTIL_KillProc, name.c_str(), 9), 0);
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 15), 0);
    EXPECT_EQ(board.Run(CUTIL_IsProc, name.c_str(), 0), found ? 1 : 0);
    EXPECT_EQ(board.Run(CUTIL_IsProc, name.c_str(), 1), found ? 1 : 0);
    EXPECT_EQ(board.transcript({"kill"}), "\n" + signals + list_signals);
}
