#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "platform/host/Thread.h"

namespace dmf::internal {

/// One start of a worker thread, shared by those who wait for it and the thread itself. See ADMWorkerThread for its
/// states. Thread-safe.
class WorkerRun {
public:
    explicit WorkerRun(ThreadForm form) noexcept : form_(form) {}

    [[nodiscard]] ThreadForm form() const noexcept { return form_; }
    [[nodiscard]] bool isEnded() const;
    [[nodiscard]] bool isStopRequested() const noexcept { return isStopRequested_; }
    void requestStop() noexcept { isStopRequested_ = true; }
    /// Whether the calling thread is the one that does the work, and has not told its end.
    [[nodiscard]] bool isOfThisThread() const;

    /// Of the detached form: waits until the thread lets its starter go, or has ended.
    void awaitBegin();

    // What the thread says.
    void enter();
    void releaseStarter();
    /// Also said by a starter who got no thread. A joinable thread for which nobody waits takes care of itself.
    void end(std::uintptr_t result);

    /// Somebody who waits for the end, from before he asks for it until he has it. Joins a thread that can be joined.
    class Waiter {
    public:
        explicit Waiter(WorkerRun& run);
        ~Waiter();
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;
        /// The result; 0 of a joinable thread that had ended before this object was made.
        [[nodiscard]] std::uintptr_t awaitEnd() const;

    private:
        WorkerRun& run_;
        const bool cameInTime_;
    };

private:
    enum class State { begun, working, ended };
    [[nodiscard]] bool addWaiter();

    const ThreadForm form_;
    std::atomic<bool> isStopRequested_{false};
    mutable std::mutex lock_;
    std::condition_variable changed_;
    State state_ = State::begun; // this and the following guarded by lock_
    std::thread::id thread_;     // none until the thread has entered
    pthread_t handle_{};
    int waiters_ = 0;
    bool isReaped_ = false; // joined or detached
    std::uintptr_t result_ = 0;
};

} // namespace dmf::internal
