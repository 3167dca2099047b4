#include "upgrade/worker_thread.h"

#include <unistd.h>

#include "tests/fake_board.h"

namespace
{

int32_t Init(void * /*arg*/)
{
    FakeBoard::Active()->Record("init");
    return 0;
}

int32_t FailInit(void *arg)
{
    return Init(arg) - 1;
}

/// Takes as many seconds as the argument says; ends the thread after five rounds.
int32_t Loop(void *arg)
{
    auto *seconds = static_cast<unsigned *>(arg);
    sleep(seconds[0]);
    return ++seconds[1] < 5 ? 0 : -1;
}

void Exit(void * /*arg*/)
{
    FakeBoard::Active()->Record("exit");
}

/// Starts and stops the thread; the transcript tells the results and the states that follow.
int StartAndStop(CTHREAD &thread, unsigned pause)
{
    const auto record = [&](const std::string &what, int result) {
        FakeBoard::Active()->Record(what + " " + std::to_string(result) + ", state " +
                                    std::to_string(thread.state));
    };
    record("new", 0);
    record("start", thread.start(&thread));
    sleep(pause);
    record("after", static_cast<int>(pause));
    record("stop", thread.stop(&thread));
    return 0;
}

} // namespace

TEST(WorkerThread, StartsAndStops)
{
    const std::string kNew = "new 0, state 0\n";
    const std::string kCreated = kNew + "thread detached\nusleep 100000\n";
    const std::string kNoStop = "usleep 100000 x30\nout [CTHREAD_Stop] error, reason(timeout)\n"
                                "stop -1, state 3\n";
    struct Case {
        int32_t (*init)(void *);
        void (*exit)(void *);
        unsigned round; ///< seconds
        unsigned pause; ///< seconds from start to stop
        bool is_created;
        std::string transcript;
    };
    const Case cases[] = {
        {Init, Exit, 1, 2, true,
         kCreated + "init\nsleep 1\nstart 0, state 2\nsleep 2\nsleep 1 x2\nafter 2, state 2\n"
                    "usleep 100000 x9\nexit\nstop 0, state 4\n"},
        // Ends by itself after five rounds, and does not answer then.
        {nullptr, nullptr, 1, 9, true,
         kCreated + "sleep 1\nstart 0, state 2\nsleep 9\nsleep 1 x4\nafter 9, state 4\n" + kNoStop},
        {FailInit, Exit, 1, 0, true,
         kCreated +
             "init\nexit\nusleep 100000 x29\nout [CTHREAD_Start] error, reason(timeout)\n"
             "start -2, state 4\nsleep 0\nafter 0, state 4\n" +
             kNoStop},
        {Init, Exit, 1, 0, false,
         kNew + "out [CTHREAD_Start] error, reason(pthread_create failed)\nstart -1, state 5\n"
                "sleep 0\nafter 0, state 5\nout [CTHREAD_Stop] error, reason(error)\n"
                "stop -1, state 5\n"},
        // Does not stop within three seconds.
        {nullptr, nullptr, 60, 0, true,
         kCreated + "sleep 60\nstart 0, state 2\nsleep 0\nafter 0, state 2\n" + kNoStop},
    };
    for (const auto &[init, exit, round, pause, is_created, transcript] : cases) {
        FakeBoard board;
        unsigned work[2] = {round, 0};
        CTHREAD thread{};
        EXPECT_EQ(CTHREAD_Init(&thread, work, init, Loop, exit), 0);
        EXPECT_EQ(thread.stop, thread.stop_again);
        board.Fail(is_created ? "none" : "pthread_create", EAGAIN);
        board.Run(StartAndStop, std::ref(thread), pause);
        EXPECT_EQ(board.transcript(), "\n" + transcript);
    }
}
