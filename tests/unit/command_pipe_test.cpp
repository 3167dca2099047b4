#include "util/command_pipe.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tests/fake_board.h"

using CommandPipe = BoardTest;

TEST_F(CommandPipe, JoinsParentAndChildCrosswise)
{
    int in = -1;
    int out = -1;
    const pid_t id = CUTIL_ForkPipe(in, out);
    ASSERT_GE(id, 0);
    char text[4] = "abc";
    if (id == 0) { // sends back what comes until the parent closes its end
        while (read(in, text, 3) == 3) {
            (void)!write(out, text, 3);
        }
        _exit(7);
    }
    EXPECT_EQ(write(out, "xyz", 3), 3);
    EXPECT_EQ(read(in, text, 3), 3);
    EXPECT_STREQ(text, "xyz");
    close(out);
    EXPECT_EQ(read(in, text, 3), 0);
    close(in);
    int status = 0;
    EXPECT_EQ(waitpid(id, &status, 0), id);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(CommandPipe, LeavesNothingOpenWhenItFails)
{
    int in = -1;
    int out = -1;
    for (const auto &[function, nth] : {std::pair{"pipe", 1}, {"pipe", 2}, {"fork", 1}}) {
        board.Fail(function, EMFILE, nth);
        EXPECT_EQ(board.Run(CUTIL_ForkPipe, std::ref(in), std::ref(out)), -1) << function << nth;
    }
}

TEST_F(CommandPipe, SendsAHeaderAndItsData)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(board.Run(CUTIL_SendCommand, ends[1], 258, 3, "abc"), 0);
    EXPECT_EQ(board.Run(CUTIL_SendCommand, ends[1], 258, 0, "abc"), 0);
    std::string bytes(64, '\0');
    bytes.resize(static_cast<size_t>(read(ends[0], bytes.data(), bytes.size())));
    EXPECT_EQ(Hex(bytes), "02 01 00 00 03 00 00 00 61 62 63 02 01 00 00 00 00 00 00");

    EXPECT_EQ(board.Run(CUTIL_SendCommand, -1, 258, 3, "abc"), -1);
    board.Fail("write", EPIPE);
    EXPECT_EQ(board.Run(CUTIL_SendCommand, ends[1], 258, 3, "abc"), -1);
    board.Fail("write", 0, 2);
    EXPECT_EQ(board.Run(CUTIL_SendCommand, ends[1], 258, 3, "abc"), -1);
    EXPECT_EQ(board.Run(CUTIL_SendCommand, ends[1], 258, -1, nullptr), -1);
    EXPECT_EQ(board.transcript(), R"(
out ERROR ! CUTIL_SendCommand() invalid param => fd is (-1)
out ERROR ! CUTIL_SendCommand() => header write return is (-1 != 8)
out ERROR ! CUTIL_SendCommand() => data write return is (0 != 3)
out ERROR ! CUTIL_SendCommand() => data write return is (-1 != -1)
)");
    close(ends[0]);
    close(ends[1]);
}
