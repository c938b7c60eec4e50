#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include <dmf/ADMWorkerThread.h>
#include <dmf/IDMLock.h>
#include <dmf/platform/RunLoop.h>

/// The thread on which all discovery back ends live: it turns a run loop in its default mode, whose main context is the
/// thread-default one, so that what is asynchronous in GLib works on it as well. Thread-safe.
///
///     starting ──its loop is there──► turning (runLoop, performAction) ──signalForStop──► ended ──start──► starting
///
/// Each start has a loop of its own; actions belong to the loop that they were queued in, and go with it.
class DMF_EXPORT ADMDiscoveryThread : public ADMWorkerThread {
public:
    /// A running thread whose run loop is ready; empty when it cannot be started. Releasing the last reference stops
    /// the thread and waits for its end, so for the action or the callback that is under way on it; on the thread
    /// itself it only asks for the end.
    [[nodiscard]] static std::shared_ptr<ADMDiscoveryThread> init();
    ~ADMDiscoveryThread() override;

    /// The thread's run loop, while it turns.
    [[nodiscard]] std::shared_ptr<dmf::RunLoop> runLoop() const;

    /// The recursive lock under which everything runs that is done on the thread for a back end. 0 for success.
    std::int32_t lock();
    std::int32_t unlock();
    [[nodiscard]] std::shared_ptr<IDMLock> lockObject() const;

    /// Runs `action` on the thread, under its lock, in the order of the calls. Gives the action's completion, a lock
    /// that is held until the action has run (or was dropped, because the thread ended first): whoever wants to wait
    /// locks it, anybody else just lets it go. Empty, with nothing queued, without an action or a running thread.
    /// An action must not block, and what it throws is logged.
    std::shared_ptr<IDMLock> performAction(std::function<void()> action);

    void signalForStop() override;

protected:
    std::uintptr_t run() override;
    std::uintptr_t threadEntry() override;
    [[nodiscard]] const char* threadName() const noexcept override;

private:
    struct Loop;
    ADMDiscoveryThread();
    [[nodiscard]] std::shared_ptr<Loop> loop() const;
    [[nodiscard]] std::shared_ptr<IDMLock> queue(Loop& loop, std::function<void()> action) const;

    const std::shared_ptr<IDMLock> lock_; // recursive
    mutable std::mutex loopLock_;
    std::shared_ptr<Loop> loop_; // guarded by loopLock_; the run loop that turns, with the actions that it serves
};
