#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>

namespace dmf {

/// The mode in which a thread's run loop normally turns. On the main thread it is the process's default main context,
/// so a GTK or Qt program turns it with its own loop.
inline constexpr std::string_view kDefaultRunLoopMode = "DMFDefaultRunLoopMode";

class RunLoop;

/// Something that a run loop waits for and that any thread can trigger. Thread-safe.
///
/// A source that is never signalled is useful as well: it keeps a mode from ending for lack of sources.
class DMF_EXPORT RunLoopSource : public std::enable_shared_from_this<RunLoopSource> {
public:
    /// `perform` runs on the thread of a run loop that the source was added to; it may be empty.
    [[nodiscard]] static std::shared_ptr<RunLoopSource> create(std::function<void()> perform);
    ~RunLoopSource();
    RunLoopSource(const RunLoopSource&) = delete;
    RunLoopSource& operator=(const RunLoopSource&) = delete;

    /// Marks the source to be performed, once however often it is signalled before that. The run loops are not woken;
    /// see RunLoop::wakeUp.
    void signal() noexcept;
    /// Takes the source out of every run loop for good. A `perform` that is under way on another thread is not waited
    /// for.
    void invalidate();
    [[nodiscard]] bool isValid() const noexcept;

    struct Private;

private:
    friend class RunLoop;
    explicit RunLoopSource(std::function<void()> perform);
    const std::shared_ptr<Private> private_;
};

/// Calls a function on a run loop's thread at a date. Thread-safe.
///
/// Dates are kept to within a few milliseconds by the steady clock: a change of the wall clock after the fire date was
/// set does not move it.
class DMF_EXPORT RunLoopTimer : public std::enable_shared_from_this<RunLoopTimer> {
public:
    enum class Repeat { no, yes };

    /// A timer that does not repeat is invalid once it has fired. One that repeats fires again `interval` seconds after
    /// its fire date (missed turns are skipped); with the interval 0 it then waits at the distant future until
    /// `setFireDate` moves it. Added in several modes, it fires in whichever the loop runs first.
    [[nodiscard]] static std::shared_ptr<RunLoopTimer> create(Date fireDate, double interval, Repeat repeat,
                                                              std::function<void(RunLoopTimer&)> callback);
    ~RunLoopTimer();
    RunLoopTimer(const RunLoopTimer&) = delete;
    RunLoopTimer& operator=(const RunLoopTimer&) = delete;

    [[nodiscard]] Date fireDate() const;
    void setFireDate(Date date);
    /// Takes the timer out of its run loop for good; the callback is let go unless it is just running.
    void invalidate();
    [[nodiscard]] bool isValid() const noexcept;

    struct Private;

private:
    friend class RunLoop;
    explicit RunLoopTimer(std::shared_ptr<Private> state);
    const std::shared_ptr<Private> private_;
};

/// A thread's loop over named sets of sources and timers, its modes. Only the sources of the mode that runs are served.
///
/// The default mode is turned by the thread's default main context as it was when the loop was made; where there was
/// none, the library's own threads get one, and on others `runMode` alone turns it, as it does all other modes. A loop
/// of the host's own (a dialog's) that a callback turns serves all that is due, whatever the run around it waits for.
///
/// What a callback throws ends the innermost `runMode` that turns its mode and reaches that one's caller; where there
/// is none, in a loop of the host's own, it ends the program.
///
/// Adding, removing, `stop` and `wakeUp` are thread-safe; running is for the loop's own thread only.
class DMF_EXPORT RunLoop : public std::enable_shared_from_this<RunLoop> {
public:
    enum class Result {
        finished,      ///< the mode has (or was left with) no source and no timer
        stopped,       ///< stop() was called
        timedOut,      ///< the limit was reached
        handledSource, ///< a source or timer was served, and the caller asked to return then
    };

    /// The calling thread's run loop, made on first use and kept until the thread ends. Where the process has not the
    /// few descriptors left that a main context takes, `runMode` alone turns its default mode until a later call finds
    /// them.
    [[nodiscard]] static std::shared_ptr<RunLoop> current();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Serves `mode` until `limit`, until stopped, or until nothing is left to wait for; at once when there is nothing
    /// at the start. What is due already is served even when the limit has passed. Throws std::logic_error on a thread
    /// other than the loop's own.
    Result runMode(std::string_view mode, Date limit, bool returnAfterSourceHandled = false);
    /// Serves the default mode without a limit.
    Result run() { return runMode(kDefaultRunLoopMode, Date::distantFuture()); }
    /// Ends the innermost runMode in progress, or the next one.
    void stop();
    /// Makes a waiting loop look at its sources.
    void wakeUp();

    [[nodiscard]] bool isCurrent() const noexcept;
    /// Whether the loop's thread has ended: nothing will be served any more.
    [[nodiscard]] bool hasEnded() const;
    /// The mode being run, or nothing when the loop is not running (or is turned by the host's own loop).
    [[nodiscard]] std::optional<std::string> currentMode() const;

    /// Adding twice to one mode counts once; invalid sources and timers are ignored.
    void addSource(const std::shared_ptr<RunLoopSource>& source, std::string_view mode);
    void removeSource(const std::shared_ptr<RunLoopSource>& source, std::string_view mode);
    void addTimer(const std::shared_ptr<RunLoopTimer>& timer, std::string_view mode);
    void removeTimer(const std::shared_ptr<RunLoopTimer>& timer, std::string_view mode);

    [[nodiscard]] std::string description() const;

    struct Private;

private:
    RunLoop();
    const std::shared_ptr<Private> private_;
};

} // namespace dmf
