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

class WorkerThread : public BoardTest
{
protected:
    unsigned work[2] = {1, 0}; // seconds a round, rounds done
    CTHREAD thread{};
};

} // namespace

TEST_F(WorkerThread, RunsUntilItIsStopped)
{
    EXPECT_EQ(board.Run([&] {
        EXPECT_EQ(CTHREAD_Init(&thread, work, Init, Loop, Exit), 0);
        EXPECT_EQ(thread.state, 0);
        EXPECT_EQ(thread.start(&thread), 0);
        EXPECT_EQ(thread.state, 2);
        sleep(2);
        return thread.stop(&thread);
    }),
              0);
    EXPECT_EQ(thread.state, 4);
    EXPECT_EQ(board.transcript(), R"(
thread detached
usleep 100000
init
sleep 1
sleep 2
sleep 1 x2
usleep 100000 x9
exit
)");
}

TEST_F(WorkerThread, EndsByItselfAndNeedsOnlyItsLoop)
{
    board.Run([&] {
        CTHREAD_Init(&thread, work, nullptr, Loop, nullptr);
        EXPECT_EQ(CTHREAD_Start(&thread), 0);
        sleep(9);
        EXPECT_EQ(thread.state, 4);
        return 0;
    });
    EXPECT_EQ(work[1], 5U);
}

TEST_F(WorkerThread, DoesNotGetToRunWhenItsInitFails)
{
    CTHREAD_Init(&thread, work, FailInit, Loop, Exit);
    EXPECT_EQ(board.Run(CTHREAD_Start, &thread), -2);
    EXPECT_EQ(thread.state, 4);
    EXPECT_EQ(board.transcript(), R"(
thread detached
usleep 100000
init
exit
usleep 100000 x29
out [CTHREAD_Start] error, reason(timeout)
)");
}

TEST_F(WorkerThread, IsNotCreated)
{
    CTHREAD_Init(&thread, work, Init, Loop, Exit);
    board.Fail("pthread_create", EAGAIN);
    EXPECT_EQ(board.Run(CTHREAD_Start, &thread), -1);
    EXPECT_EQ(thread.state, 5);
    EXPECT_EQ(board.Run(CTHREAD_Stop, &thread), -1);
    EXPECT_EQ(board.transcript(), R"(
out [CTHREAD_Start] error, reason(pthread_create failed)
out [CTHREAD_Stop] error, reason(error)
)");
}

TEST_F(WorkerThread, DoesNotStopWithinThreeSeconds)
{
    work[0] = 60;
    CTHREAD_Init(&thread, work, nullptr, Loop, nullptr);
    board.Run([&] {
        EXPECT_EQ(CTHREAD_Start(&thread), 0);
        EXPECT_EQ(thread.stop_again(&thread), -1);
        EXPECT_EQ(thread.state, 3);
        return 0;
    });
    EXPECT_EQ(board.transcript(), R"(
thread detached
usleep 100000
sleep 60
usleep 100000 x30
out [CTHREAD_Stop] error, reason(timeout)
)");
}
