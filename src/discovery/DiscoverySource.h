#pragma once

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/IDMServiceDiscovery.h>
#include <dmf/platform/Class.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace dmf::internal {

/// One back end in one run of a discovery: started once and stopped once. It is started on the thread that calls
/// `start`, for as long as that takes, and stopped on a thread of its own: one that hangs keeps neither the caller nor
/// the other sources, and whoever hangs in it owns all that it needs. Thread-safe.
///
///     waiting ──start──► starting ──it has started──► running ──stop──► stopping ──its stop returned──► stopped
///        │                   │ └──────stop──────────────────────────────►┘   └──────it threw───────────► failed
///        │                   └──it did not start, or threw──► failed
///        ├──no plug-in──► missing
///        └──stop──► stopped
///
/// What is asked to stop while it starts is stopped by the thread that starts it, once its start has returned.
class DiscoverySource final : public std::enable_shared_from_this<DiscoverySource> {
public:
    using Clock = std::chrono::steady_clock;
    using Service = std::shared_ptr<ADMServiceInfo>;
    enum class Change { found, lost };
    /// Receives what the back end reports, on the discovery thread; tells whether it was taken.
    using Report = std::function<bool(const Service& service, Change change)>;

    DiscoverySource(std::string connectionType, std::string channelName, Report report);

    [[nodiscard]] const std::string& connectionType() const noexcept { return connectionType_; }
    /// Whether nobody has started or stopped it yet.
    [[nodiscard]] bool isWaiting() const;

    /// Makes and starts the back end; a null class is a missing plug-in. Nothing happens once it has been stopped.
    void start(const std::shared_ptr<const Class>& implementor, const Dictionary& parameters,
               const Dictionary* parametersToResolve);
    /// It cannot be started.
    void fail(std::string_view reason);
    /// Asks it to stop; never waits while a thread can be had.
    void stop();

    /// Until its start is over, or nobody waits for it any more, or until the deadline.
    void waitUntilStarted(Clock::time_point deadline) const;
    /// Until it has stopped, or until the deadline.
    void waitUntilStopped(Clock::time_point deadline) const;

    [[nodiscard]] ADMDiscoverySource told() const;

private:
    enum class State { waiting, starting, running, missing, failed, stopping, stopped };
    /// A back end together with what it reports to, which it holds weakly.
    struct BackEnd {
        std::shared_ptr<IDMServiceDiscovery> discovery;
        std::shared_ptr<IDMServiceDiscoveryDelegate> reports;
    };

    [[nodiscard]] bool change(State from, State to, Dictionary error = {});
    [[nodiscard]] bool launch(const Class& implementor, const Dictionary& parameters,
                              const Dictionary* parametersToResolve, BackEnd& backEnd, Dictionary& error);
    [[nodiscard]] bool takeOver(BackEnd& started);
    [[nodiscard]] std::shared_ptr<IDMServiceDiscoveryDelegate> reportsToThis();
    void finish(BackEnd& backEnd);

    const std::string connectionType_;
    const std::string channelName_;
    const Report report_;

    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    State state_ = State::waiting; // guarded by lock_
    BackEnd backEnd_;              // guarded by lock_; there while it runs
    Dictionary error_;             // guarded by lock_; what it failed by, or suffered from as it stopped
    std::atomic<std::uint64_t> finds_{0};
};

} // namespace dmf::internal
