#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>

class ADMCallback;
class IDMSchedulableOperation;

/// Runs operations one at a time, in the order in which they were scheduled, on a thread of its own, and carries their
/// callbacks to the run loops on which the queue is scheduled. Thread-safe.
///
/// The thread is started for the first operation. It never holds the queue: releasing the last reference, on the
/// queue's own thread or in a callback too, ends the queue as `invalidate` does, and waits for nobody.
class DMF_EXPORT ADMOperationQueue final {
public:
    /// What became of the queue's thread.
    enum class ThreadState { notStarted = 0, running = 1, ended = 2 };

    ADMOperationQueue();
    ~ADMOperationQueue();
    ADMOperationQueue(const ADMOperationQueue&) = delete;
    ADMOperationQueue& operator=(const ADMOperationQueue&) = delete;

    /// Queues the operation; ignored when it is null or the queue is no longer valid. It stays listed, and can be
    /// canceled, until it has run; one that is canceled before its turn is left out.
    void scheduleOperation(std::shared_ptr<IDMSchedulableOperation> operation);
    /// Starts the thread if it does not run; `scheduleOperation` does so by itself. When the system has no thread to
    /// give, the operations wait for the next start.
    void startThread();
    [[nodiscard]] ThreadState threadState() const;

    /// Has the callback performed once on a run loop on which the queue is scheduled, after those that were sent
    /// before. The queue's thread calls it with what an operation gives. While no run loop takes callbacks, some wait;
    /// when there are too many, this waits at most 5 seconds for room (`invalidate` ends the wait), and then the
    /// callback is lost. Ignored when it is null or the queue is no longer valid.
    void scheduleCallback(std::shared_ptr<ADMCallback> callback);
    /// Callbacks are performed on `runLoop` while it serves `mode`, one at a time. Each is ignored without a run loop.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode);

    /// The operations that wait or run: the latest first, the one that runs last.
    [[nodiscard]] std::vector<std::shared_ptr<IDMSchedulableOperation>> operations() const;
    /// Cancels each of `operations`; a std::exception that one throws is logged, and the others are canceled as well.
    void cancelAllOperations();

    [[nodiscard]] bool isValid() const;
    /// Ends the queue: all operations are canceled, callbacks that wait are dropped, and nothing is accepted, started
    /// or performed any more. Does not wait for an operation or a callback that is under way.
    void invalidate();

private:
    struct State;
    const std::shared_ptr<State> state_; // the thread's as well
};
