#pragma once

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMServiceInfo.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "discovery/DiscoveryRun.h"
#include "discovery/FoundServices.h"
#include "platform/runloop/RunLoopFeed.h"
#include "service/resolution/ResolveParameters.h"

/// The state of a discovery, and the ways from its back ends to its client. Locks are taken in the order lock,
/// reportLock. None is held while a delegate, a filter or a back end is called, or while anybody is waited for.
struct ADMBaseDiscovery::Private {
    using Service = std::shared_ptr<ADMServiceInfo>;
    using Modes = std::set<std::string>;
    using Report = std::function<void(ADMDiscovery& discovery, const ADMDiscoveryDelegate& delegate)>;

    explicit Private(std::vector<std::string> names) : channelNames(std::move(names)) {}

    const std::vector<std::string> channelNames;

    mutable std::recursive_mutex lock;
    std::atomic<bool> isStarted{false};    // changed under lock
    std::shared_ptr<dmf::RunLoop> runLoop; // guarded by lock
    Modes runLoopModes;                    // guarded by lock
    const std::shared_ptr<dmf::RunLoopSource> stubPort =
        dmf::RunLoopSource::create(nullptr); // keeps the modes from ending
    dmf::Dictionary connectionParameters = dmf::internal::connectionTypeToParametersMap(); // guarded by lock
    dmf::Dictionary parameters;                                                            // guarded by lock
    std::shared_ptr<dmf::internal::DiscoveryRun> run; // guarded by lock; the last one

    /// Orders the reports: nothing that was found comes after the end.
    mutable std::mutex reportLock;
    std::weak_ptr<ADMDiscoveryDelegate> delegate;     // guarded by reportLock
    std::shared_ptr<ADMDiscoveryFilter> filter;       // guarded by reportLock
    std::shared_ptr<dmf::internal::RunLoopFeed> feed; // guarded by reportLock; there while there is a run loop

    void applyRunLoop(std::shared_ptr<dmf::RunLoop> newRunLoop, Modes newModes);
    bool notify(const std::weak_ptr<ADMBaseDiscovery>& weak, Report report,
                const dmf::internal::DiscoveryRun* of = nullptr);
    /// Tells the delegate that the discovery does not begin.
    void refuse(const std::weak_ptr<ADMBaseDiscovery>& weak, std::string_view description);
    [[nodiscard]] bool passesFilter(ADMServiceInfo& service) const noexcept;
    bool addService(const std::weak_ptr<ADMBaseDiscovery>& weak, const dmf::internal::DiscoveryRun& of,
                    const Service& service);
    bool removeService(const std::weak_ptr<ADMBaseDiscovery>& weak, const dmf::internal::DiscoveryRun& of,
                       const Service& service);
    /// Starts a run. Called with the lock held, not started, with a run loop and a mode.
    std::shared_ptr<dmf::internal::DiscoveryRun> begin(const std::weak_ptr<ADMBaseDiscovery>& weak,
                                                       const std::vector<std::string>& connectionTypes,
                                                       std::shared_ptr<dmf::internal::Gathering> gathering = nullptr);
    /// Ends the present run, if there is one; with `only`, if it is that one.
    void end(const std::weak_ptr<ADMBaseDiscovery>& weak, const dmf::internal::DiscoveryRun* only = nullptr);
    [[nodiscard]] std::shared_ptr<dmf::internal::DiscoveryRun> currentRun() const;
};
