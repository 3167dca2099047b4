#include "upgrade/worker_thread.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>

namespace
{

constexpr int kPolls = 30;
constexpr useconds_t kPollInterval = 100'000; // microseconds

/// The body of the thread.
void *CTHREAD_Main(void *record)
{
    auto *thread = static_cast<CTHREAD *>(record);
    if (thread->init == nullptr || thread->init(thread->arg) >= 0) {
        // Overwrites a stop that was requested meanwhile: the requester then sees a time-out and
        // not a thread that never ran.
        thread->state = CTHREAD::kRunning;
        while (thread->state == CTHREAD::kRunning && thread->loop(thread->arg) >= 0) {
        }
    }
    if (thread->exit != nullptr) {
        thread->exit(thread->arg);
    }
    thread->state = CTHREAD::kStopped;
    return nullptr;
}

bool CreateDetached(CTHREAD *thread)
{
    // With these arguments the calls on attributes cannot fail.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t id;
    const bool created = pthread_create(&id, &attributes, CTHREAD_Main, thread) == 0;
    pthread_attr_destroy(&attributes);
    return created;
}

bool WaitForState(const CTHREAD *thread, int32_t state)
{
    for (int poll = 0; poll < kPolls; ++poll) {
        usleep(kPollInterval);
        if (thread->state == state) {
            return true;
        }
    }
    return false;
}

int Fail(const char *operation, const char *reason, int result)
{
    std::printf("[%s] error, reason(%s)\n", operation, reason);
    return result;
}

} // namespace

int CTHREAD_Init(CTHREAD *thread, void *arg, int32_t (*init)(void *), int32_t (*loop)(void *),
                 void (*exit)(void *))
{
    thread->arg = arg;
    thread->init = init;
    thread->loop = loop;
    thread->exit = exit;
    thread->stop = CTHREAD_Stop;
    thread->start = CTHREAD_Start;
    thread->stop_again = CTHREAD_Stop;
    thread->state = CTHREAD::kCreated;
    return 0;
}

int CTHREAD_Start(CTHREAD *thread)
{
    thread->state = CTHREAD::kStarting;
    if (!CreateDetached(thread)) {
        thread->state = CTHREAD::kCreationFailed;
        return Fail("CTHREAD_Start", "pthread_create failed", -1);
    }
    return WaitForState(thread, CTHREAD::kRunning) ? 0 : Fail("CTHREAD_Start", "timeout", -2);
}

int CTHREAD_Stop(CTHREAD *thread)
{
    if (thread->state == CTHREAD::kCreationFailed) {
        return Fail("CTHREAD_Stop", "error", -1);
    }
    thread->state = CTHREAD::kStopRequested;
    return WaitForState(thread, CTHREAD::kStopped) ? 0 : Fail("CTHREAD_Stop", "timeout", -1);
}
