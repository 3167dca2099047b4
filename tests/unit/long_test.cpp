// What is longer or larger than anything on a board: many processes, large configuration files.
#include <unistd.h>

#include "tests/fake_board.h"
#include "util/conf_reader.h"
#include "util/conf_writer.h"
#include "util/process.h"

namespace
{

using Long = BoardTest;

/// The beginning of the large files: `size` bytes, in lines of `line` bytes with the line end.
std::string Lines(size_t size, size_t line)
{
    std::string text;
    for (size_t number = 0; text.size() < size; ++number) {
        const std::string begin = "k" + std::to_string(number) + "=";
        text += begin + std::string(line - 1 - begin.size(), 'v') + "\n";
    }
    return text;
}

std::string LookUp(FakeBoard &board, auto reader, const std::string &key, auto... separator)
{
    std::array<char, 2048> value{};
    EXPECT_EQ(board.Run(reader, "/etc/a.conf", key.c_str(), std::span<char>{value}, separator...),
              0);
    return value.data();
}

} // namespace

TEST_F(Long, ListOfProcessesIsWalkedToItsEnd)
{
    constexpr int kFirst = 21;
    constexpr int kCount = 10'000;
    std::string kills = "\n"; // in the order of the listing
    std::set<std::string> ids;
    for (int id = kFirst; id < kFirst + kCount; ++id) {
        board.AddProcess(id, id == 9999 ? "/bin/last" : "/bin/foo"); // the last name of all
        ids.insert(std::to_string(id));
    }
    for (const std::string &id : ids) {
        kills += id == "9999" ? "" : "kill " + id + " 15\n";
    }
    board.Start({"xkill", "alive", "/bin/last"});
    EXPECT_EQ(board.transcript(), "\nout Alive /bin/last\n");
    board.Start({"xkill", "/bin/foo"});
    EXPECT_EQ(board.transcript({"kill", "usleep"}), kills);
    board.Start({"xkill", "alive", "/bin/foo"});
    board.Start({"xkill", "/bin/last"});
    EXPECT_EQ(board.transcript(), "\nout Alive /bin/last" + kills + "kill 9999 15\n");
}

TEST_F(Long, ScanPassesOverWhatEndsMeanwhile)
{
    // The first one takes another with it, whose folder is gone when its turn comes.
    for (const int id : {30, 31, 32}) {
        board.AddProcess(id, "/bin/foo");
    }
    board.on_line = [&](const std::string &) {
        unlink(board.Map("/proc/31/cmdline").c_str());
        rmdir(board.Map("/proc/31").c_str());
    };
    board.Start({"xkill", "/bin/foo"});
    EXPECT_EQ(board.transcript(), "\nkill 30 15\nkill 32 15\n");
}

TEST_F(Long, ConfigurationIsReadToItsEnd)
{
    constexpr size_t kMebibyte = 1024 * 1024;
    for (const size_t line : {100, 2048, 2049, 100'000}) {
        board.Write("/etc/a.conf", Lines(kMebibyte, line) + "last=7\nend:8\n");
        EXPECT_EQ(LookUp(board, CUTIL_GetConfValue, "last"), "7") << line;
        EXPECT_EQ(LookUp(board, CUTIL_GetConfValueExact, "last"), "7") << line;
        EXPECT_EQ(LookUp(board, CUTIL_GetConfValueSep, "end", ':'), "8") << line;
    }
    // Pieces count as lines: 2047 characters of this one, then one that begins with a key.
    const std::string cut = "key=" + std::string(2043, 'v');
    board.Write("/etc/a.conf", cut + "cam=" + std::string(97'949, 'w') + "\nz=9\n");
    EXPECT_EQ(LookUp(board, CUTIL_GetConfValue, "key"), std::string(2043, 'v'));
    EXPECT_EQ(LookUp(board, CUTIL_GetConfValue, "cam"), std::string(2043, 'w'));
    board.Write("/etc/a.conf", std::string(kMebibyte, 'k')); // one line, no end
    EXPECT_EQ(LookUp(board, CUTIL_GetConfValue, std::string(63, 'k')), "");
    EXPECT_EQ(LookUp(board, CUTIL_GetConfValueExact, std::string(1024, 'k')), "");
}

TEST_F(Long, ConfigurationIsRewrittenWhole)
{
    const auto set = [](const char *key, const char *value) {
        return CUTIL_SetConfValue("/etc/a.conf", key, value);
    };
    const auto set_separated = [](const char *key, const char *value) {
        return CUTIL_SetConfValueSep('=', "/etc/a.conf", key, value);
    };
    const auto set_file = [](const char *key, const char *value) {
        return CUTIL_SetFileValue("/etc/a.conf", "/etc/b.tmp", key, value);
    };
    const std::string value(100'000, 'w');
    for (int (*form)(const char *, const char *) : {+set, +set_separated, +set_file}) {
        for (const size_t line : {255, 256, 100'000, 300'000}) {
            const std::string before = Lines(1024 * 1024, line);
            board.Write("/etc/a.conf", before + "key=1\nz=9\n");
            EXPECT_EQ(board.Run(form, "key", value.c_str()), 0);
            EXPECT_TRUE(board.Read("/etc/a.conf") == before + "key=" + value + "\nz=9\n") << line;
        }
    }
}
