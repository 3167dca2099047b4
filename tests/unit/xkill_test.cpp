#include "tests/fake_board.h"

TEST(XKill, TakesItsForms)
{
    const std::tuple<std::vector<std::string>, std::string> cases[] = {
        {{"xkill", "/bin/foo"}, "\nkill 30 15\nkill 31 15\n"},
        {{"xkill", "/bin/none"}, "\n"},
        {{"xkill", "SIGTERM", "/bin/foo"}, "\nkill 30 15\nkill 31 15\n"},
        {{"xkill", "SIGKILL", "/bin/foo"}, "\nkill 30 9\nkill 31 9\n"},
        {{"xkill", "alive", "/bin/foo"}, "\nout Alive /bin/foo\n"},
        {{"xkill", "alive", "/bin/none"}, "\n"},
        {{"xkill", "alive", "/bin/early"}, "\n"},
        {{"xkill", "sigterm", "/bin/foo"}, "\n"},
        {{"xkill", "SIGTERMS", "/bin/foo"}, "\n"},
        {{"xkill", "Alive", "/bin/foo"}, "\n"},
        {{"xkill"}, "\n"},
        {{"xkill", "SIGKILL", "/bin/foo", "/bin/foo"}, "\n"},
        {{"xkill", "SIGKILL"}, "\n"}, // a name like any other
    };
    for (const auto &[words, transcript] : cases) {
        FakeBoard board;
        board.AddProcess(20, "/bin/early");
        board.AddProcess(30, "/bin/foo");
        board.AddProcess(31, "/bin/foobar");
        EXPECT_EQ(board.Start(words), 0);
        EXPECT_EQ(board.transcript(), transcript) << testing::PrintToString(words);
    }
}

TEST(XKill, WaitsTenSecondsForAProcessThatStays)
{
    // With a signal word it is that word's processes that are awaited; mostly there are none.
    const std::tuple<std::vector<std::string>, std::string, int64_t> cases[] = {
        {{"xkill", "/bin/foo"}, "/bin/foo", 10},
        {{"xkill", "SIGTERM", "/bin/foo"}, "/bin/foo", 0},
        {{"xkill", "SIGKILL", "/bin/foo"}, "/bin/foo", 0},
        {{"xkill", "SIGKILL", "/bin/foo"}, "SIGKILL and more", 10},
    };
    for (const auto &[words, process, seconds] : cases) {
        FakeBoard board;
        board.processes_obey = false;
        board.AddProcess(30, process);
        const int64_t start = board.clock;
        EXPECT_EQ(board.Start(words), 0);
        EXPECT_EQ(board.clock - start, seconds * 1'000'000) << testing::PrintToString(words);
        // No pause between the scans.
        EXPECT_EQ(board.transcript({"usleep"}), seconds > 0 ? "\nusleep 0 x1000\n" : "\n");
    }
}

TEST(XKill, TakesAnUnreadableProcForAlive)
{
    FakeBoard board;
    board.Fail("opendir", EMFILE);
    board.Start({"xkill", "alive", "/bin/foo"});
    EXPECT_EQ(board.transcript(), "\nout Alive /bin/foo\n");
    board.Fail("opendir", EMFILE, 2); // the first one is the killer's
    board.Start({"xkill", "/bin/foo"});
    EXPECT_EQ(board.transcript({"usleep"}), "\nusleep 0\n");
}
