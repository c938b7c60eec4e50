#pragma once

#include <cstdint>
#include <memory>

#include <dmf/platform/Export.h>

namespace dmf::internal {
class WorkerRun;
}

/// Base of the library's thread objects: a subclass supplies the work, `run`; the owner starts it, asks it to stop and
/// waits for its end. A stopped worker can be started again. Thread-safe.
///
/// Each start is an object of its own, which the owner and the thread share; what a request to end, a result or an end
/// belongs to is known by it:
///
///     begun ──the starter is let go──► working ──threadEntry has returned──► ended
///       └──the system has no thread for it────────────────────────────────────►
///
///     call       no start yet, or ended                begun, working
///     start      begins the next one                   -1
///     stop       0; of the detached form, the result   asks, waits, gives the result; on the own thread it only asks
///
/// A worker made by std::make_shared keeps itself alive while its thread runs, so releasing the last other reference
/// is safe anywhere, on the worker's own thread included; it does not stop the work. The thread lets go of the worker
/// before its end is told: a worker that is released after `stop` is destroyed where it is released, and one whose last
/// reference is its thread's is destroyed on that thread, as the work ends. A worker owned in another way must outlive
/// its thread. The thread has all signals blocked. A thread that ends by itself leaves nothing behind.
class DMF_EXPORT ADMWorkerThread : public std::enable_shared_from_this<ADMWorkerThread> {
public:
    ADMWorkerThread();
    virtual ~ADMWorkerThread();
    ADMWorkerThread(const ADMWorkerThread&) = delete;
    ADMWorkerThread& operator=(const ADMWorkerThread&) = delete;

    /// Chooses the detached form: `start` returns only once the thread really runs, and `stop` always gives the result
    /// of `run`. To be called before `start`.
    void setRunDetached();

    /// Starts the thread. 0 when it runs, -1 when one is running already, otherwise the system's error number; then the
    /// worker is as idle as before.
    [[nodiscard]] virtual std::int32_t start();

    /// Asks the work to end and waits, without a limit, until it has; gives its result. Gives 0 at once when nothing
    /// was started, and, for a thread that is not detached, when the work had already ended. Called on the worker's
    /// own thread it only asks, and gives 0: nobody can wait for himself. What a subclass's `signalForStop` throws
    /// passes; the work has been asked then, nobody has waited for it, and `stop` may be called again.
    std::uintptr_t stop();

    /// Asks the work to end, and returns at once. A subclass whose work waits for something overrides it to wake the
    /// work, and calls this one first.
    virtual void signalForStop();

    [[nodiscard]] bool isRunning() const noexcept;

protected:
    /// The work, on the worker's thread. This one throws dmf::UnrecognizedOperation. A std::exception that escapes
    /// ends the thread with the result 0 and a log line; anything else ends the program, as from any thread.
    virtual std::uintptr_t run();

    /// Brackets `run` on the new thread; gives its result. A subclass overrides it only to let the starter go later
    /// than at entry: it then calls `releaseStarter` itself.
    virtual std::uintptr_t threadEntry();
    void releaseStarter();

    /// One start, for waiting for its end alone, whatever is started later.
    using Start = std::shared_ptr<dmf::internal::WorkerRun>;
    [[nodiscard]] Start lastStart() const;
    /// Waits until the work of `start` has ended; asks for nothing. At once without a start and on its own thread.
    static void awaitEnd(const Start& start);

    /// Whether the end of the last start has been asked for; a loop in `run` looks at it.
    [[nodiscard]] bool isStopRequested() const noexcept;
    /// Whether the calling thread is the worker's own.
    [[nodiscard]] bool isCurrentThread() const noexcept;
    /// The name that the thread shows to debuggers (15 characters at most).
    [[nodiscard]] virtual const char* threadName() const noexcept;

private:
    struct State;
    static void enter(ADMWorkerThread* worker, std::shared_ptr<ADMWorkerThread> keptAlive, const Start& run);

    const std::unique_ptr<State> state_;
};
