#include "discovery/DiscoveryPrivate.h"

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/platform/Date.h>
#include <dmf/platform/Format.h>

#include <algorithm>
#include <exception>
#include <utility>

using dmf::RunLoop;
using dmf::internal::DiscoveryRun;
using dmf::internal::Gathering;
using dmf::internal::RunLoopFeed;

namespace {
/// One back end serves a connection type, however often the type is named.
std::vector<std::string> eachOnce(const std::vector<std::string>& types)
{
    std::vector<std::string> once;
    for (const auto& type : types) {
        if (std::find(once.begin(), once.end(), type) == once.end())
            once.push_back(type);
    }
    return once;
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
    if (runLoop) {
        for (const auto& mode : runLoopModes)
            runLoop->removeSource(stubPort, mode);
    }
    runLoop = std::move(newRunLoop);
    runLoopModes = std::move(newModes);

    std::lock_guard reportGuard(reportLock);
    retired = std::exchange(feed, runLoop ? std::make_shared<RunLoopFeed>() : nullptr);
    if (retired)
        retired->retire();
    if (!runLoop)
        return;
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
    if (!of) {
        call();
        return true;
    }
    // A back end knows nothing of what a client throws.
    try {
        call();
    } catch (const std::exception& exception) {
        DMFLog("errors", "Discovery: exception %@ from a delegate on the discovery thread.", exception);
    }
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

bool ADMBaseDiscovery::Private::passesFilter(ADMServiceInfo& service) const noexcept
{
    std::shared_ptr<ADMDiscoveryFilter> chosen;
    {
        std::lock_guard guard(reportLock);
        chosen = filter;
    }
    try {
        return !chosen || chosen->isAcceptedService(service);
    } catch (const std::exception& exception) {
        DMFLog("errors", "Discovery: exception %@ from a filter.", exception);
        return false;
    }
}

bool ADMBaseDiscovery::Private::addService(const std::weak_ptr<ADMBaseDiscovery>& weak, const DiscoveryRun& of,
                                           const Service& service)
{
    constexpr std::uint32_t found = 1;
    if (!passesFilter(*service))
        return false;
    service->setServiceState(found);
    if (of.gathering())
        of.gathering()->add(service);
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
    if (of.gathering())
        of.gathering()->remove(*service);
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

std::shared_ptr<DiscoveryRun> ADMBaseDiscovery::Private::begin(const std::weak_ptr<ADMBaseDiscovery>& weak,
                                                               const std::vector<std::string>& connectionTypes,
                                                               std::shared_ptr<Gathering> gathering)
{
    const auto handOn = [weak](auto handle) {
        return [weak, handle](const std::shared_ptr<DiscoveryRun>& of, const Service& service) {
            const auto discovery = weak.lock();
            return discovery && (discovery->private_.get()->*handle)(weak, *of, service);
        };
    };
    isStarted = true;
    DMFLog("debug", "Discovery: discovery %@ will start.", DescribedDiscovery{weak});
    notify(weak, [](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryWillStart)
            listener.discoveryWillStart(discovery);
    });
    run = std::make_shared<DiscoveryRun>(
        DiscoveryRun::Plan{connectionTypes.empty() ? availableConnectionTypesToDiscover() : eachOnce(connectionTypes),
                           channelNames, connectionParameters, parameters},
        handOn(&Private::addService), handOn(&Private::removeService), std::move(gathering));
    run->begin();
    return run;
}

void ADMBaseDiscovery::Private::end(const std::weak_ptr<ADMBaseDiscovery>& weak, const DiscoveryRun* only)
{
    std::shared_ptr<DiscoveryRun> ended;
    {
        std::lock_guard guard(lock);
        if (!isStarted || (only && run.get() != only))
            return;
        isStarted = false;
        ended = run;
        // A find under way is handed over before, or not at all.
        std::lock_guard reportGuard(reportLock);
        ended->beginEnding();
    }
    ended->end();
    DMFLog("debug", "Discovery: discovery %@ did stop", DescribedDiscovery{weak});
    notify(weak, [](ADMDiscovery& discovery, const ADMDiscoveryDelegate& listener) {
        if (listener.discoveryDidStop)
            listener.discoveryDidStop(discovery);
    });
}
