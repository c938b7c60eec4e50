#pragma once

#include <functional>
#include <optional>

namespace dmf::tool {

/// Ends the program cleanly on Ctrl-C (and on SIGTERM and SIGHUP). The signals are blocked in every thread and read by
/// a thread of their own, so what has to be done on a signal may be ordinary code.
///
/// Work that can block runs inside a `Scope`: on a signal, or at the scope's deadline, its `cancel` is called once, on
/// a thread of its own. Work that does not come back within two seconds of that is left where it is, and so is work
/// outside a scope.
class Interrupt {
public:
    /// To be called first in main, before any other thread exists. A signal that the caller of the program had set to
    /// be ignored (nohup, say) stays ignored.
    static void install();
    /// Ends the watching thread.
    static void uninstall();

    /// Whether a signal has come.
    [[nodiscard]] static bool requested() noexcept;
    /// Throws Failure when a signal has come.
    static void check();
    /// A descriptor that turns readable when a signal comes, for poll.
    [[nodiscard]] static int descriptor() noexcept;

    /// Whether an error object is still to be written when work has to be left where it is.
    static void oweObject(bool owed) noexcept;

    /// At most one at a time.
    class Scope {
    public:
        /// `cancel` must make the work end soon; it may be empty for work that looks at `descriptor`.
        explicit Scope(std::function<void()> cancel, std::optional<double> seconds = {});
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        /// Whether the deadline ended the work (and no signal).
        [[nodiscard]] bool timedOut() const noexcept;
    };
};

} // namespace dmf::tool
