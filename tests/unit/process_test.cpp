#include "util/process.h"

#include "tests/fake_board.h"

using namespace std::string_literals;

namespace
{

class Process : public BoardTest
{
protected:
    Process()
    {
        board.processes_obey = false;
        board.Write("/proc/self/cmdline", "/bin/foo");
        board.Write("/proc/21a/cmdline", "/bin/foo");
        board.Write("/proc/25/stat", "a process whose command line is gone");
        board.AddProcess(19, "/bin/foo");
        board.AddProcess(20, "/bin/foo");
        board.AddProcess(21, "/bin/foo\0-x"s);
        board.AddProcess(22, "/bin/foobar");
        board.AddProcess(23, "/usr/bin/foo");
        board.AddProcess(24, ""); // a kernel thread
        board.AddProcess(26, "two\nlines");
        board.AddProcess(30, std::string(64 * 1024, 'x'));
    }
};

const std::string x255(255, 'x');

} // namespace

TEST_F(Process, IsSignalledAndFoundByTheBeginningOfItsCommandLine)
{
    const std::tuple<std::string, std::string, int> cases[] = {
        {"/bin/foo", "kill 20 9\nkill 21 9\nkill 22 9\n", 1},
        {"/bin/foob", "kill 22 9\n", 1},
        {"/bin/foo -x", "", 0},
        {"", "kill 20 9\nkill 21 9\nkill 22 9\nkill 23 9\nkill 26 9\nkill 30 9\n", 1},
        {"two\n", "kill 26 9\n", 1},
        {"two\nl", "", 1}, // signals go by the first line only
        {x255, "kill 30 9\n", 1},
        {x255 + "x", "", 0},
    };
    std::string all = "\n";
    for (const auto &[name, kills, found] : cases) {
        EXPECT_EQ(board.Run(CUTIL_KillProc, name.c_str(), 9), 0);
        EXPECT_EQ(board.transcript({"kill"}), all += kills) << name;
        EXPECT_EQ(board.Run(CUTIL_IsProc, name.c_str(), 0), found) << name;
    }
    FakeBoard early;
    early.AddProcess(20, "/bin/foo");
    early.AddProcess(24, "");
    EXPECT_EQ(early.Run(CUTIL_IsProc, "/bin/foo", 0), 0); // is signalled but not found
    EXPECT_EQ(early.Run(CUTIL_IsProc, "", 0), 0);
    EXPECT_EQ(early.transcript(), "\n");
}

TEST(ProcessScan, GoesOnPastWhatCannotBeRead)
{
    FakeBoard board;
    board.AddProcess(30, "/bin/foo");
    board.AddProcess(31, "/bin/foo");
    board.Fail("open", ENOENT, 1, "/proc/30");
    board.Fail("read", EIO, 1, "/proc/31");
    EXPECT_EQ(board.Run(CUTIL_IsProc, "/bin/foo", 0), 0);
    EXPECT_EQ(board.Run(CUTIL_IsProc, "/bin/foo", 0), 1);
    board.Fail("closedir", EBADF);
    EXPECT_EQ(board.Run(CUTIL_IsProc, "/bin/bar", 0), -1);
    for (const int debug : {0, 1}) {
        board.Fail("opendir", EMFILE);
        EXPECT_EQ(board.Run(CUTIL_IsProc, "/bin/foo", debug), -1);
    }
    board.Fail("opendir", EMFILE);
    EXPECT_EQ(board.Run(CUTIL_KillProc, "/bin/foo", 9), 0);
    board.Fail("open", ENOENT, 1, "/proc/30");
    EXPECT_EQ(board.Run(CUTIL_KillProc, "/bin/foo", 9), 0);
    board.AddProcess(31, "/bin/foo");
    board.Fail("read", ESRCH, 1, "/proc/30");
    EXPECT_EQ(board.Run(CUTIL_KillProc, "/bin/foo", 9), 0);
    board.AddProcess(31, "/bin/foo");
    board.Fail("kill", ESRCH);
    EXPECT_EQ(board.Run(CUTIL_KillProc, "/bin/foo", 9), 0);
    EXPECT_EQ(board.transcript(), R"(
out CUTIL_IsProc error while open /proc/30/cmdline
out CUTIL_IsProc error while open /proc
kill 31 9
kill 31 9
kill 30 9
kill 31 9
)");
}

TEST(ProcessScan, IsTracedStepByStep)
{
    FakeBoard board;
    board.AddProcess(20, "/bin/foo");
    board.AddProcess(30, "/bin/bar\0-x"s);
    board.AddProcess(31, "/bin/foods");
    board.AddProcess(32, "/bin/foo");
    EXPECT_EQ(board.Run(CUTIL_IsProc, "/bin/foo", 1), 1);
    EXPECT_EQ(board.transcript(), R"(
out CUTIL_IsProc dirp->d_name : .
out CUTIL_IsProc dirp->d_name : ..
out CUTIL_IsProc dirp->d_name : 20
out CUTIL_IsProc dirp->d_name : 30
out CUTIL_IsProc 4 : 30 : /proc/30/cmdline
out _name         : [/bin/foo]
out buf           : [/bin/bar]
out strlen(_name) : 8
out strlen(buf)   : 8
out
out CUTIL_IsProc dirp->d_name : 31
out CUTIL_IsProc 4 : 31 : /proc/31/cmdline
out _name         : [/bin/foo]
out buf           : [/bin/foods]
out strlen(_name) : 8
out strlen(buf)   : 10
out
)");
}

TEST_F(Process, IsSignalledForEachNameOfAList)
{
    const std::string n30(30, 'n');
    board.AddProcess(40, n30);
    board.AddProcess(41, std::string(31, 'm'));
    // The end of a line that is too long is no name, nor is one with a NUL byte, least of all the
    // empty one.
    board.Write("/etc/list", x255 + "/usr\n" + x255 + "\n" + std::string(31, 'm') +
                                 "\n\0\n/bin/foob\r\n"s + n30 + "\n/bin/f");
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 15), 0);
    EXPECT_EQ(board.transcript(), R"(
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - kill[/bin/foo], 20\n
kill 20 15
syslog info [CUTIL_KillProcAll] - kill[/bin/foo], 21\n
kill 21 15
syslog info [CUTIL_KillProcAll] - kill[/bin/foobar], 22\n
kill 22 15
syslog info [CUTIL_KillProcAll] - kill[/bin/foobar], 22\n
kill 22 15
syslog info [CUTIL_KillProcAll] - kill[)" +
                                      n30 + R"(], 40\n
kill 40 15
)");
}

TEST_F(Process, ListHasSixteenNamesAndABlankOneMatchesAll)
{
    std::string fifteen;
    for (int i = 0; i < 15; ++i) {
        fifteen += "/opt/none\n";
    }
    board.Write("/etc/list", fifteen + "/usr/bin\n/bin/foo\n");
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 9), 0);
    EXPECT_EQ(board.transcript({"kill"}), "\nkill 23 9\n");
    board.Write("/etc/list", "/opt/none\n\n");
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 1), 0);
    EXPECT_EQ(board.transcript({"kill"}),
              "\nkill 23 9\nkill 20 1\nkill 21 1\nkill 22 1\nkill 23 1\nkill 26 1\nkill 30 1\n");
}

TEST_F(Process, ListThatCannotBeReadSignalsNothing)
{
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 9), -1);
    board.Write("/etc/list", "/bin/foo\n");
    board.Fail("opendir", EMFILE);
    EXPECT_EQ(board.Run(CUTIL_KillProcAll, "/etc/list", 9), 0);
    EXPECT_EQ(board.transcript(), R"(
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - list open err[/etc/list]\n
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - opendir err[/proc]\n
)");
}
