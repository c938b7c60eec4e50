#pragma once

#include <cstdint>
#include <memory>

#include <dmf/platform/Export.h>

/// Base of the library's thread objects: a subclass supplies the work, `run`; the owner starts it, asks it to stop and
/// waits for its end. A stopped worker can be started again.
///
/// A worker made by std::make_shared keeps itself alive while its thread runs, so releasing the last other reference
/// is safe anywhere, on the worker's own thread included; it does not stop the work. A worker owned in another way must
/// outlive its thread. The thread has all signals blocked. A thread that ends by itself leaves nothing behind.
///
/// `start` and `stop` are for one owning thread at a time; `signalForStop` and `isRunning` are thread-safe.
class DMF_EXPORT ADMWorkerThread : public std::enable_shared_from_this<ADMWorkerThread> {
public:
    ADMWorkerThread();
    virtual ~ADMWorkerThread();
    ADMWorkerThread(const ADMWorkerThread&) = delete;
    ADMWorkerThread& operator=(const ADMWorkerThread&) = delete;

    /// Chooses the detached form: `start` returns only once the thread really runs, and `stop` always gives the result
    /// of `run`. To be called before `start`.
    void setRunDetached();

    /// Starts the thread. 0 when it runs, -1 when one is running already, otherwise the system's error number.
    [[nodiscard]] std::int32_t start();

    /// Asks the work to end and waits, without a limit, until it has; gives its result. Gives 0 at once when nothing
    /// was started, and, for a thread that is not detached, when the work had already ended. Called on the worker's
    /// own thread it only asks, and gives 0: nobody can wait for himself.
    std::uintptr_t stop();

    /// Asks the work to end, and returns at once. A subclass whose work waits for something overrides it to wake the
    /// work, and calls this one as well.
    virtual void signalForStop();

    [[nodiscard]] bool isRunning() const noexcept;

protected:
    /// The work, on the worker's thread. This one throws dmf::UnrecognizedOperation. A std::exception that escapes
    /// ends the thread with the result 0 and a log line; anything else ends the program, as from any thread.
    virtual std::uintptr_t run();

    /// Brackets `run` on the new thread. A subclass overrides it only to let the starter go later than at entry:
    /// it then calls `releaseStarter` itself, and in every case `finish` with the result at the end.
    virtual std::uintptr_t threadEntry();
    void releaseStarter();
    void finish(std::uintptr_t result);

    /// Whether the end has been asked for; a loop in `run` looks at it.
    [[nodiscard]] bool isStopRequested() const noexcept;
    /// Whether the calling thread is the worker's own.
    [[nodiscard]] bool isCurrentThread() const noexcept;
    /// The name that the thread shows to debuggers (15 characters at most).
    [[nodiscard]] virtual const char* threadName() const noexcept;

private:
    struct Run;
    struct State;
    void enter(Run& run);
    const std::shared_ptr<State> state_;
};
