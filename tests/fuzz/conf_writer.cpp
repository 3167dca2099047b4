// The configuration writer in its three forms: afterwards the file is the old one or the new one,
// whichever call failed on the way, and the new one exactly when the result says so.
//
// Input: which form, which call fails ('0' for none), '1' when the scratch file is in use, '1' when
// only writes fail, from that one on, as on a disk that stays full; the key; the value; the file.
#include "util/conf_writer.h"

#include "tests/fuzz/fuzz.h"

namespace
{

constexpr const char *kPath = "/etc/a.conf";

struct Form {
    int (*set)(const char *key, const char *value);
    size_t line; ///< characters of a piece
    std::string separator;
    bool by_name; ///< compares the name and not the beginning
};

const Form kForms[] = {
    {[](auto key, auto value) { return CUTIL_SetConfValue(kPath, key, value); }, 255, "=", true},
    {[](auto key, auto value) { return CUTIL_SetConfValueSep(':', kPath, key, value); }, 255, ":",
     false},
    {[](auto key, auto value) { return CUTIL_SetFileValue(kPath, "/etc/temp.conf", key, value); },
     262'143, "=", false},
};

std::string NameOf(const std::string &line)
{
    const std::string name = line.substr(0, line.find_first_of(" ="));
    return name.size() < line.size() && name.find('#') == std::string::npos ? name : line;
}

std::string Rewritten(const std::string &file, const Form &form, const std::string &key,
                      const std::string &value)
{
    const std::string entry = key + form.separator + value + "\n";
    std::string text;
    bool replaced = false;
    for (size_t at = 0; at < file.size();) {
        std::string line = file.substr(at, form.line);
        line = line.substr(0, line.find('\n')) + (line.find('\n') != std::string::npos ? "\n" : "");
        at += line.size();
        const bool matches = form.by_name ? NameOf(line) == key : line.starts_with(key);
        text += matches ? entry : line;
        replaced = replaced || matches;
    }
    return replaced ? text : text + entry;
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 4);
    const auto &form = kForms[static_cast<size_t>(Digit(fields[0], 0)) % std::size(kForms)];
    const int failing_call = Digit(fields[0], 1);
    const bool in_use = Digit(fields[0], 2) == 1;
    const std::string key = fields[1].c_str();
    const std::string value = fields[2].c_str();

    FakeBoard board;
    board.Write(kPath, fields[3]);
    if (in_use) {
        board.Write("/etc/temp.conf", "another writer's");
    }
    const bool stays_full = Digit(fields[0], 3) == 1 && failing_call > 0;
    board.Fail(stays_full ? "fwrite" : "", ENOSPC, failing_call);
    board.faults_last = stays_full;
    const int result = board.Run(form.set, key.c_str(), value.c_str());
    const std::string after = result == 0 ? Rewritten(fields[3], form, key, value) : fields[3];
    EXPECT_EQ(board.Read(kPath), after);
    if (failing_call == 0) {
        EXPECT_EQ(result, form.by_name && in_use ? -1 : 0);
        EXPECT_EQ(board.Read("/etc/temp.conf"), result == 0 ? "(none)" : "another writer's");
    }
}
