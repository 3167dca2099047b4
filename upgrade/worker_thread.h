// A detached worker thread that runs one callback again and again.
#pragma once

#include <atomic>
#include <cstdint>

/// A worker thread and its operations.
///
/// The caller and the thread share `state` without a lock: the caller writes kStarting,
/// kStopRequested and kCreationFailed, the thread kRunning and kStopped, and each polls for the
/// other's.
struct CTHREAD {
    enum State : int32_t {
        kCreated = 0,
        kStarting = 1,
        kRunning = 2,
        kStopRequested = 3,
        kStopped = 4,
        kCreationFailed = 5,
    };

    std::atomic<int32_t> state;
    void *arg;                  ///< passed to every callback
    int32_t (*init)(void *arg); ///< may be null; once, first; negative ends the thread
    int32_t (*loop)(
        void *arg);          ///< while kRunning; negative ends the thread; at most 3 seconds long
    void (*exit)(void *arg); ///< may be null; once, last
    int (*stop)(CTHREAD *);
    int (*start)(CTHREAD *);
    int (*stop_again)(CTHREAD *); ///< the same as `stop`
};

/// Fills the record. Returns 0.
int CTHREAD_Init(CTHREAD *thread, void *arg, int32_t (*init)(void *), int32_t (*loop)(void *),
                 void (*exit)(void *));

/// Creates the thread and waits up to 3 seconds until it runs.
///
/// @return 0; -1 when it cannot be created, -2 when it does not get to run, each with a message
int CTHREAD_Start(CTHREAD *thread);

/// Asks the thread to end after its present round and waits up to 3 seconds until it has.
///
/// @return 0; -1, with a message, when it has not or was never created
int CTHREAD_Stop(CTHREAD *thread);
