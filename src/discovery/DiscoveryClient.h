#pragma once

#include <dmf/ADMDiscovery.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/RunLoop.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "discovery/DiscoverySource.h"
#include "discovery/Gathering.h"
#include "foundation/logging/Guarded.h"
#include "platform/runloop/RunLoopFeed.h"

namespace dmf::internal {

/// The client's side of a discovery: its delegate, its filter, where it wants to hear, and the one session whose
/// reports it hears. What a delegate or a filter throws is logged, and ends there. No lock is held while either is
/// called. Thread-safe.
///
///     idle ──open──► the session is open: its reports pass ──close──► idle (what it still reports is dropped)
class DiscoveryClient final {
public:
    using Service = DiscoverySource::Service;
    using Modes = std::set<std::string>;
    using Feed = std::shared_ptr<RunLoopFeed>;

    /// One start as its client sees it; reports carry it.
    struct Session {
        std::shared_ptr<Gathering> gathering; ///< of a synchronous run
        Feed feed;                            ///< where a synchronous run hears, whatever the client's scheduling
    };

    DiscoveryClient();
    ~DiscoveryClient();
    DiscoveryClient(const DiscoveryClient&) = delete;
    DiscoveryClient& operator=(const DiscoveryClient&) = delete;

    /// Whose reports these are; once, before anything is told. It is not kept alive.
    void setOwner(const std::weak_ptr<ADMDiscovery>& owner) { owner_ = owner; }
    /// Nobody is to hear anything any more.
    void retire();

    [[nodiscard]] std::shared_ptr<ADMDiscoveryDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate);
    [[nodiscard]] std::shared_ptr<ADMDiscoveryFilter> filter() const;
    /// Gives the earlier one for it; false when both are the same.
    [[nodiscard]] bool swapFilter(std::shared_ptr<ADMDiscoveryFilter>& filter);

    [[nodiscard]] std::shared_ptr<RunLoop> runLoop() const;
    [[nodiscard]] Modes runLoopModes() const;
    /// Replaces both. Reports that are pending stay in the run loop and the modes in which they were made.
    void schedule(std::shared_ptr<RunLoop> runLoop, Modes modes);

    /// Whether a session is open; with one given, whether it is that one.
    [[nodiscard]] bool isOpen(const Session* session = nullptr) const;
    /// Called while none is open.
    void open(std::shared_ptr<const Session> session);
    /// Ends the session, or, with one given, that one only. Gives what it ended: a report that was under way has been
    /// handed over before, or is dropped.
    std::shared_ptr<const Session> close(const Session* only = nullptr);

    /// Takes a back end's report over, unless the session is over or the filter refuses the service, which `false`
    /// tells.
    [[nodiscard]] bool report(const Session& session, const Service& service, DiscoverySource::Change change);

    /// Calls one of the delegate's operations where the client hears, in the order of the calls; at once when the
    /// client has chosen no run loop. `about` is the session that it concerns, else the open one.
    template <class... Parameters, class... Arguments>
    void tell(std::function<void(ADMDiscovery&, Parameters...)> ADMDiscoveryDelegate::*operation, const Session* about,
              const Arguments&... arguments)
    {
        handOver(callOf(operation, arguments...), about);
    }

private:
    template <class Operation, class... Arguments>
    RunLoopFeed::Call callOf(Operation operation, const Arguments&... arguments) const
    {
        return [owner = owner_, operation, arguments...] {
            const auto discovery = owner.lock();
            const auto listener = discovery ? discovery->delegate() : nullptr;
            if (listener && (*listener).*operation)
                guarded("Discovery", "in a delegate", [&] { ((*listener).*operation)(*discovery, arguments...); });
        };
    }
    void handOver(RunLoopFeed::Call call, const Session* about);
    [[nodiscard]] bool handOverReport(RunLoopFeed::Call call, const Session& session);
    [[nodiscard]] bool accepts(const Session& session, ADMServiceInfo& service) const;

    std::weak_ptr<ADMDiscovery> owner_;
    /// Keeps the client's modes from ending.
    const std::shared_ptr<RunLoopSource> stubPort_ = RunLoopSource::create(nullptr);

    mutable std::mutex lock_;
    std::weak_ptr<ADMDiscoveryDelegate> delegate_; // guarded by lock_
    std::shared_ptr<ADMDiscoveryFilter> filter_;   // guarded by lock_
    std::shared_ptr<RunLoop> runLoop_;             // guarded by lock_; what the client chose
    Modes modes_;                                  // guarded by lock_
    Feed feed_;                                    // guarded by lock_; there while there is a run loop
    std::shared_ptr<const Session> session_;       // guarded by lock_; the open one
};

} // namespace dmf::internal
