#include "discovery/DiscoveryPrivate.h"

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Date.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <utility>

#include "platform/Host.h"

using dmf::RunLoop;
using dmf::internal::DiscoveryRun;
using dmf::internal::RunLoopFeed;

namespace {
double steadyNow()
{
    return dmf::internal::Host::current().steadyNow();
}
/// What a log line says, found out only when the line is written.
struct DescribedDiscovery {
    const std::weak_ptr<ADMBaseDiscovery>& discovery;
    [[nodiscard]] std::string description() const { return dmf::formatted("<ADMBaseDiscovery %p>", discovery.lock()); }
};
struct DescribedService {
    const std::shared_ptr<ADMServiceInfo>& service;
    [[nodiscard]] std::string description() const { return dmf::formatted("<ADMServiceInfo %p>", service); }
};
struct DescribedURI {
    const std::shared_ptr<ADMServiceInfo>& service;
    [[nodiscard]] std::string description() const { return service->uri().value_or("(null)"); }
};
} // namespace

/// Reports that are pending stay in the run loop and the modes in which they were made.
void ADMBaseDiscovery::Private::applyRunLoop(std::shared_ptr<RunLoop> newRunLoop, Modes newModes)
{
    std::shared_ptr<RunLoopFeed> retired;
    std::lock_guard guard(lock);
    if (runLoop == newRunLoop && runLoopModes == newModes)
        return;
    for (const auto& mode : runLoopModes)
        runLoop->removeSource(stubPort, mode);
    runLoop = std::move(newRunLoop);
    runLoopModes = runLoop ? std::move(newModes) : Modes();

    std::lock_guard reportGuard(reportLock);
    retired = std::exchange(feed, runLoop ? std::make_shared<RunLoopFeed>() : nullptr);
    if (retired)
        retired->retire();
    for (const auto& mode : runLoopModes) {
        runLoop->addSource(stubPort, mode);
        feed->schedule(runLoop, mode);
    }
}

/// Hands a report to the run loop; without one the delegate hears at once. A report of a run that is ending is dropped,
/// which `false` tells. Reports do not keep the discovery alive.
bool ADMBaseDiscovery::Private::notify(const std::weak_ptr<ADMBaseDiscovery>& weak, Report report,
                                       const DiscoveryRun* of)
{
    auto call = [weak, report = std::move(report)] {
        const auto discovery = weak.lock();
        const auto listener = discovery ? discovery->delegate() : nullptr;
        if (listener)
            report(*discovery, *listener);
    };
    {
        std::lock_guard guard(reportLock);
        if (of && of->isEnding())
            return false;
        if (feed) {
            feed->add(std::move(call));
            return true;
        }
    }
    call();
    return true;
}

void ADMBaseDiscovery::Private::refuse(const std::weak_ptr<ADMBaseDiscovery>& weak, std::string_view description)
{
    notify(weak, [error = dmf::Dictionary{{std::string(kDMErrorDescription), description}}](
                     ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryDidNotDiscover)
            listener.discoveryDidNotDiscover(discovery, error);
    });
}

bool ADMBaseDiscovery::Private::passesFilter(ADMServiceInfo& service) const
{
    std::shared_ptr<ADMDiscoveryFilter> chosen;
    {
        std::lock_guard guard(reportLock);
        chosen = filter;
    }
    return !chosen || chosen->isAcceptedService(service);
}

bool ADMBaseDiscovery::Private::addService(const std::weak_ptr<ADMBaseDiscovery>& weak, const DiscoveryRun& of,
                                           const Service& service)
{
    constexpr std::uint32_t found = 1;
    if (!passesFilter(*service))
        return false;
    service->setServiceState(found);
    {
        std::lock_guard guard(serviceLock);
        if (services)
            services->add(service);
        lastServiceComeDate = steadyNow();
    }
    DMFLog("debug", "Discovery: discovery %@ did find service %@ for device '%@'", DescribedDiscovery{weak},
           DescribedService{service}, DescribedURI{service});
    return notify(
        weak,
        [service](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
            if (listener.discoveryDidFindService)
                listener.discoveryDidFindService(discovery, service);
        },
        &of);
}

bool ADMBaseDiscovery::Private::removeService(const std::weak_ptr<ADMBaseDiscovery>& weak, const DiscoveryRun& of,
                                              const Service& service)
{
    constexpr std::uint32_t removed = 2;
    if (!passesFilter(*service))
        return false;
    service->setServiceState(removed);
    {
        std::lock_guard guard(serviceLock);
        if (services)
            services->remove(*service);
    }
    DMFLog("debug", "Discovery: discovery %@ did remove service %@ for device '%@'", DescribedDiscovery{weak},
           DescribedService{service}, DescribedURI{service});
    return notify(
        weak,
        [service](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
            if (listener.discoveryDidRemoveService)
                listener.discoveryDidRemoveService(discovery, service);
        },
        &of);
}

std::shared_ptr<DiscoveryRun> ADMBaseDiscovery::Private::currentRun() const
{
    std::lock_guard guard(lock);
    return run;
}

void ADMBaseDiscovery::Private::begin(const std::weak_ptr<ADMBaseDiscovery>& weak,
                                      std::vector<std::string> connectionTypes)
{
    const auto handOn = [weak](auto handle) {
        return [weak, handle](const std::shared_ptr<DiscoveryRun>& of, const Service& service) {
            const auto discovery = weak.lock();
            return discovery && (discovery->private_.get()->*handle)(weak, *of, service);
        };
    };
    std::shared_ptr<DiscoveryRun> started;
    {
        std::lock_guard guard(lock);
        run = started = std::make_shared<DiscoveryRun>(
            DiscoveryRun::Plan{std::move(connectionTypes), channelNames, connectionParameters, parameters},
            handOn(&Private::addService), handOn(&Private::removeService));
    }
    started->begin();
}

/// Turns the loop until no service has come for `timeout` seconds, or the discovery has been stopped.
void ADMBaseDiscovery::Private::awaitIdleness(RunLoop& loop, double timeout)
{
    constexpr double longestTurn = 24 * 3600; // seconds
    {
        std::lock_guard guard(serviceLock);
        lastServiceComeDate = steadyNow();
    }
    while (isStarted) {
        double left = timeout - steadyNow();
        {
            std::lock_guard guard(serviceLock);
            left += lastServiceComeDate;
        }
        if (!(left > 0))
            return;
        loop.runMode(kDMDiscoveryPerformMode, dmf::Date::now().addingTimeInterval(std::min(left, longestTurn)), true);
    }
}
